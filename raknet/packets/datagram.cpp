#include "raknet/packets/datagram.h"

#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;

void Datagram::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    sequenceNumber = readU24(buffer);
    while (buffer.readableBytes() > 0) {
        EncapsulatedPacket frame;
        frame.decode(buffer);
        packets.push_back(std::move(frame));
    }
}

void Datagram::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    writeU24(buffer, sequenceNumber & 0xFFFFFF);
    for (const auto& frame : packets) {
        frame.encode(buffer);
    }
}

int32_t Datagram::length() const {
    int32_t total = 4;
    for (const auto& frame : packets) {
        total += frame.size();
    }
    return total;
}

}  // namespace ferrylink::raknet
