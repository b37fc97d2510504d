#include "raknet/request_budget.h"

#include <algorithm>
#include <span>
#include <utility>

#include "foundation/random.h"

namespace ferrylink::raknet {

RequestBudget::RequestBudget()
    : seed_(static_cast<uint64_t>(foundation::random32()) << 32 | foundation::random32()) {}

RequestBudget::Slot& RequestBudget::slotOf(size_t source, int64_t now) {
    // The seeded hash's top bits pick the set (Fibonacci hashing).
    const uint64_t set = (source ^ seed_) * 0x9E3779B97F4A7C15ull >> (64 - SET_BITS);
    std::span<Slot, WAYS> ways(slots_.begin() + static_cast<ptrdiff_t>(set * WAYS), WAYS);
    Slot* nearestFull = &ways[0];
    for (Slot& slot : ways) {
        if (slot.source == source) {
            return slot;
        }
        if (slot.fullAt < nearestFull->fullAt) {
            nearestFull = &slot;
        }
    }
    *nearestFull = Slot{source, now, 0};
    return *nearestFull;
}

bool RequestBudget::allow(const foundation::SocketAddress& source, int64_t now) {
    Slot& slot = slotOf(source.hash(), now);
    // Each request moves the time of a full bucket on by one interval; a
    // bucket that would be full only more than a burst from now is empty.
    const int64_t fullAt = std::max(slot.fullAt, now) + INTERVAL_MILLIS;
    if (fullAt - now <= BURST * INTERVAL_MILLIS) {
        slot.fullAt = fullAt;
        return true;
    }
    ++excess_.requests;
    if (slot.refusedIn != count_) {
        slot.refusedIn = count_;
        ++excess_.sources;
    }
    return false;
}

RequestBudget::Excess RequestBudget::takeExcess() {
    ++count_;
    return std::exchange(excess_, Excess{});
}

}  // namespace ferrylink::raknet
