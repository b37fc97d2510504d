#pragma once

#include <cstdint>

namespace ferrylink::bridge {

// How a client's batches travel, held per client and used in both directions.
// Nothing on the wire says which one is in force: both sides know.
enum class CompressionAlgorithm : uint8_t {
    NONE = 0,
    ZLIB = 1,
};

}  // namespace ferrylink::bridge
