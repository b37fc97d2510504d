#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "raknet/packets/acknowledge_packet.h"

namespace ferrylink::raknet {

// The sequence numbers of a peer's data datagrams: which are taken, which
// are reported as missing, and the ACK and NACK that say so.
//
// The window slides with the newest number: it spans 2049 numbers from the
// newest one taken, so a datagram overtaken by a later one falls under its
// start and is dropped unacknowledged, even while its number waits to be
// reported missing; the peer resends its content under a new number.
//
// Loop thread only, like the connection that owns it.
class ReceiveWindow {
public:
    // Numbers waiting in either queue at most. A gap of a whole window adds
    // 2048 missing numbers at once; a real peer never has four such gaps
    // unreported, since each tick reports what waits.
    static constexpr size_t QUEUE_LIMIT = 4 * 2048;

    enum class Arrival {
        taken,     // new and inside the window: acknowledge it, handle its frames
        ignored,   // outside the window or seen before: nothing at all
        overflow,  // would grow a queue past QUEUE_LIMIT: the peer is to be dropped
    };

    // Takes note of data datagram `sequenceNumber` and of the numbers it skipped.
    Arrival arrive(uint32_t sequenceNumber);

    // The next ACK, or NACK, within `budget` bytes of records; nothing when no
    // number waits. The numbers it took leave the queue.
    std::optional<AcknowledgePacket> nextAck(int32_t budget);
    std::optional<AcknowledgePacket> nextNack(int32_t budget);

    bool hasPending() const { return !ackQueue_.empty() || !nackQueue_.empty(); }
    int32_t windowStart() const { return windowStart_; }
    int32_t windowEnd() const { return windowEnd_; }
    const std::vector<uint32_t>& ackQueue() const { return ackQueue_; }
    const std::vector<uint32_t>& nackQueue() const { return nackQueue_; }

private:
    int32_t windowStart_ = -1;
    int32_t windowEnd_ = 2048;
    int32_t lastSequenceNumber_ = -1;
    std::vector<uint32_t> ackQueue_;
    std::vector<uint32_t> nackQueue_;
};

}  // namespace ferrylink::raknet
