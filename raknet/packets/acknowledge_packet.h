#pragma once

#include <cstdint>
#include <vector>

#include "raknet/packets/packet.h"

namespace ferrylink::raknet {

// ACK (0xC0) and NACK (0xA0): id, record count (2), then per record 1 and a
// u24 for one number, or 0 and two u24 for a range.
class AcknowledgePacket : public Packet {
public:
    struct Entry {
        uint32_t start = 0;
        uint32_t end = 0;
        friend bool operator==(const Entry&, const Entry&) = default;
        friend bool operator<(const Entry& lhs, const Entry& rhs) { return lhs.start < rhs.start; }
    };

    explicit AcknowledgePacket(uint8_t id) : Packet(id) {}
    // Sorts `queue`, merges it into ranges while they fit `budget` bytes (4 for
    // a single number, 7 for a range) and removes what it consumed from `queue`.
    // A number that opens a range which then doesn't fit has been consumed all
    // the same: the peer gets it again by retransmission.
    AcknowledgePacket(uint8_t id, std::vector<uint32_t>& queue, int32_t budget);

    // Replaces `packets`. Fails on short input, a negative record count and
    // a range that runs backwards.
    Decoded decode(foundation::ByteBuffer& buffer) override;
    void encode(foundation::ByteBuffer& buffer) const override;

    std::vector<Entry> packets;
    // The byte budget left over after the merge.
    int32_t mtu = 0;
};

class ACK : public AcknowledgePacket {
public:
    static constexpr uint8_t ID = 0xC0;
    ACK() : AcknowledgePacket(ID) {}
};

class NACK : public AcknowledgePacket {
public:
    static constexpr uint8_t ID = 0xA0;
    NACK() : AcknowledgePacket(ID) {}
};

}  // namespace ferrylink::raknet
