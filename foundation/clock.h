#pragma once

#include <cstdint>

namespace ferrylink::foundation {

// Wall-clock milliseconds since 1970, the time base of the transport's
// timeouts and of delayed queue work. Tests move it forward instead of
// sleeping; production never touches the offset.
class Clock {
public:
    static int64_t currentTimeMillis();
    // Moves every later reading forward by `milliseconds`. Test use only.
    static void advance(int64_t milliseconds);
    static int64_t offsetMillis();
};

}  // namespace ferrylink::foundation
