#include "raknet/resend_table.h"

#include <algorithm>

namespace ferrylink::raknet {

void ResendTable::store(Datagram datagram, uint64_t resentInTick) {
    const auto number = static_cast<int32_t>(datagram.sequenceNumber);
    sent_.insert_or_assign(number, Sent{std::move(datagram), resentInTick});
    ordered_.insert(number);
}

const Datagram* ResendTable::find(int32_t number) const {
    auto found = sent_.find(number);
    return found == sent_.end() ? nullptr : &found->second.datagram;
}

uint64_t ResendTable::resentInTick(int32_t number) const {
    auto found = sent_.find(number);
    return found == sent_.end() ? 0 : found->second.resentInTick;
}

void ResendTable::erase(int32_t number) {
    sent_.erase(number);
    ordered_.erase(number);
}

namespace {

// The ranges of `packet` as they stand when they are in order and apart, as
// a peer's own merge makes them; else sorted and merged, so that no number is
// looked at twice however the ranges overlap.
std::vector<AcknowledgePacket::Entry> disjointRanges(const AcknowledgePacket& packet) {
    std::vector<AcknowledgePacket::Entry> ranges = packet.packets;
    bool apart = true;
    for (size_t i = 1; i < ranges.size() && apart; ++i) {
        apart = ranges[i].start > ranges[i - 1].end;
    }
    if (apart) {
        return ranges;
    }
    std::sort(ranges.begin(), ranges.end());
    std::vector<AcknowledgePacket::Entry> merged;
    for (const auto& range : ranges) {
        if (!merged.empty() && range.start <= merged.back().end + 1) {
            merged.back().end = std::max(merged.back().end, range.end);
        } else {
            merged.push_back(range);
        }
    }
    return merged;
}

}  // namespace

template <typename Visit>
void ResendTable::forEachHeld(const AcknowledgePacket& packet, Visit visit) {
    for (const auto& range : disjointRanges(packet)) {
        // Numbers travel as 24 bits and are kept as signed 32-bit ones; both
        // ends of a range fit.
        auto number = ordered_.lower_bound(static_cast<int32_t>(range.start));
        auto end = ordered_.upper_bound(static_cast<int32_t>(range.end));
        while (number != end) {
            // The visit may erase the number it is given.
            int32_t held = *number++;
            visit(held);
        }
    }
}

void ResendTable::acknowledge(const AcknowledgePacket& ack) {
    forEachHeld(ack, [&](int32_t number) { erase(number); });
}

std::vector<int32_t> ResendTable::nackedForResend(const AcknowledgePacket& nack, uint64_t tick) {
    std::vector<int32_t> chosen;
    forEachHeld(nack, [&](int32_t number) {
        Sent& sent = sent_.at(number);
        if (sent.resentInTick == tick) {
            return;  // named twice, or resent for an earlier NACK of this tick
        }
        const int64_t cost = sent.datagram.length();
        if (cost > credit_) {
            return;
        }
        credit_ -= cost;
        sent.resentInTick = tick;
        chosen.push_back(number);
    });
    return chosen;
}

std::vector<int32_t> ResendTable::numbers() const {
    std::vector<int32_t> all;
    all.reserve(sent_.size());
    for (const auto& entry : sent_) {
        all.push_back(entry.first);
    }
    return all;
}

bool ResendTable::pay(const Datagram& datagram) {
    const int64_t cost = datagram.length();
    if (cost > credit_) {
        return false;
    }
    credit_ -= cost;
    return true;
}

void ResendTable::earn(size_t bytes) {
    credit_ = std::min<int64_t>(MAX_CREDIT, credit_ + CREDIT_PER_BYTE * static_cast<int64_t>(bytes));
}

}  // namespace ferrylink::raknet
