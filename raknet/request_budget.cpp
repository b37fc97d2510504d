#include "raknet/request_budget.h"

#include <algorithm>
#include <span>
#include <utility>

#include "foundation/random.h"

namespace ferrylink::raknet {

RequestBudget::RequestBudget()
    : seed_(static_cast<uint64_t>(foundation::random32()) << 32 | foundation::random32()) {}

size_t RequestBudget::setOf(size_t source) const {
    // The seeded hash's top bits pick the set (Fibonacci hashing).
    return ((source ^ seed_) * 0x9E3779B97F4A7C15ull >> (64 - SET_BITS)) * WAYS;
}

std::optional<size_t> RequestBudget::find(const foundation::SocketAddress& source) const {
    const size_t hash = source.hash();
    const size_t first = setOf(hash);
    for (size_t index = first; index < first + WAYS; ++index) {
        if (slots_[index].source == hash) {
            return index;
        }
    }
    return std::nullopt;
}

RequestBudget::Slot& RequestBudget::slotOf(const foundation::SocketAddress& source, int64_t now) {
    if (auto found = find(source)) {
        return slots_[*found];
    }
    auto ways = std::span(slots_).subspan(setOf(source.hash()), WAYS);
    Slot& nearestFull = *std::ranges::min_element(ways, {}, &Slot::fullAt);
    nearestFull = Slot{source.hash(), now, 0, std::nullopt, 0};
    return nearestFull;
}

bool RequestBudget::allow(const foundation::SocketAddress& source, int64_t now) {
    Slot& slot = slotOf(source, now);
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

void RequestBudget::rememberRequestOne(const foundation::SocketAddress& source, int32_t protocolVersion,
                                       int64_t now) {
    Slot& slot = slotOf(source, now);
    slot.requestOneProtocol = protocolVersion;
    slot.requestOneAt = now;
}

std::optional<int32_t> RequestBudget::requestOneProtocol(const foundation::SocketAddress& source,
                                                         int64_t now) const {
    auto found = find(source);
    if (!found || now - slots_[*found].requestOneAt > REQUEST_ONE_MILLIS) {
        return std::nullopt;
    }
    return slots_[*found].requestOneProtocol;
}

void RequestBudget::forgetRequestOne(const foundation::SocketAddress& source) {
    if (auto found = find(source)) {
        slots_[*found].requestOneProtocol.reset();
    }
}

RequestBudget::Excess RequestBudget::takeExcess() {
    ++count_;
    return std::exchange(excess_, Excess{});
}

}  // namespace ferrylink::raknet
