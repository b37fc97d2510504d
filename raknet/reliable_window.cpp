#include "raknet/reliable_window.h"

#include <algorithm>
#include <vector>

namespace ferrylink::raknet {

void ReliableWindow::advance() {
    ++lastReliableIndex_;
    ++reliableWindowStart_;
    ++reliableWindowEnd_;
}

void ReliableWindow::receive(EncapsulatedPacket frame, const std::function<bool(EncapsulatedPacket&)>& deliver) {
    if (!frame.messageIndex) {
        deliver(frame);
        return;
    }
    const int32_t index = *frame.messageIndex;
    if (index < reliableWindowStart_ || index > reliableWindowEnd_) {
        return;  // how a duplicate of a reliable frame goes away
    }
    if (index - lastReliableIndex_ != 1) {
        reliableWindow_.insert_or_assign(index, std::move(frame));
        return;
    }
    advance();
    if (!deliver(frame) || reliableWindow_.empty()) {
        return;
    }

    std::vector<std::pair<int32_t, EncapsulatedPacket>> sorted(std::make_move_iterator(reliableWindow_.begin()),
                                                                std::make_move_iterator(reliableWindow_.end()));
    std::sort(sorted.begin(), sorted.end(), [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
    std::unordered_map<int32_t, EncapsulatedPacket> rebuilt;
    for (auto& entry : sorted) {
        rebuilt.insert(std::move(entry));
    }
    reliableWindow_ = std::move(rebuilt);

    // Walked in the hash table's own order, which isn't ascending: the walk
    // stops at the first key that isn't next in line, and frames behind it wait
    // for the next in-order frame to start a new walk. Peers of this system
    // live with exactly this reorder buffer.
    for (auto entry = reliableWindow_.begin(); entry != reliableWindow_.end();) {
        if (entry->first - lastReliableIndex_ != 1) {
            break;
        }
        advance();
        EncapsulatedPacket next = std::move(entry->second);
        entry = reliableWindow_.erase(entry);
        if (!deliver(next)) {
            return;
        }
    }
}

}  // namespace ferrylink::raknet
