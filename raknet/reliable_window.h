#pragma once

#include <cstdint>
#include <functional>
#include <unordered_map>

#include "raknet/packets/encapsulated_packet.h"

namespace ferrylink::raknet {

// Delivery of a peer's reliable frames in the order of their messageIndex,
// each once: a frame ahead of its turn waits, a frame outside the window of
// 2049 indices from the next one due (a duplicate, most often) goes away.
//
// Order channels and sequence indices take no part: delivery follows
// messageIndex alone, as peers of this system expect.
//
// Loop thread only, like the connection that owns it.
class ReliableWindow {
public:
    // Gives `frame` to `deliver` when it has no messageIndex or is next in
    // line, followed by the waiting frames that its turn frees; else keeps it
    // or drops it. `deliver` answers whether to go on: false stops the walk,
    // for a connection that has just been dropped.
    void receive(EncapsulatedPacket frame, const std::function<bool(EncapsulatedPacket&)>& deliver);

    int32_t lastReliableIndex() const { return lastReliableIndex_; }
    size_t waiting() const { return reliableWindow_.size(); }

private:
    // The next frame is in line: count it.
    void advance();

    int32_t reliableWindowStart_ = 0;
    int32_t reliableWindowEnd_ = 2048;
    // Walked in the table's own iteration order, which is not ascending: a walk
    // may stop before frames that are next in line.
    std::unordered_map<int32_t, EncapsulatedPacket> reliableWindow_;
    int32_t lastReliableIndex_ = -1;
};

}  // namespace ferrylink::raknet
