#pragma once

#include <chrono>
#include <cstdint>

namespace ferrylink::foundation {

// A signed count of nanoseconds.
struct TimeAmount {
    int64_t nanoseconds = 0;

    static constexpr TimeAmount zero() { return TimeAmount{0}; }
    static constexpr TimeAmount milliseconds(int64_t count) { return TimeAmount{count * 1'000'000}; }

    constexpr std::chrono::nanoseconds duration() const { return std::chrono::nanoseconds(nanoseconds); }
    friend constexpr bool operator==(TimeAmount, TimeAmount) = default;
};

}  // namespace ferrylink::foundation
