#pragma once

#include <cstdint>

namespace ferrylink::foundation {

// A uniformly random 32-bit number from the system's generator.
uint32_t random32();

}  // namespace ferrylink::foundation
