#include "foundation/clock.h"

#include <atomic>
#include <chrono>

namespace ferrylink::foundation {

namespace {
std::atomic<int64_t> offset{0};
}

int64_t Clock::currentTimeMillis() {
    auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count() + offset.load();
}

void Clock::advance(int64_t milliseconds) { offset.fetch_add(milliseconds); }

int64_t Clock::offsetMillis() { return offset.load(); }

}  // namespace ferrylink::foundation
