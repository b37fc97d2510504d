#pragma once

#include <cstdint>
#include <vector>

#include "raknet/packets/encapsulated_packet.h"
#include "raknet/packets/packet.h"

namespace ferrylink::raknet {

// The carrier of frames: id (0x80 as sent), sequenceNumber (u24), frames to the end.
class Datagram : public Packet {
public:
    Datagram() : Packet(0x80) {}
    // Fails on a short header or the first frame that can't be read.
    Decoded decode(foundation::ByteBuffer& buffer) override;
    void encode(foundation::ByteBuffer& buffer) const override;
    // 4 header bytes plus the size of each frame.
    int32_t length() const;

    std::vector<EncapsulatedPacket> packets;
    // Only the low 24 bits go on the wire.
    uint32_t sequenceNumber = 0;
    int64_t sendTime = -1;
};

}  // namespace ferrylink::raknet
