#include "raknet/packets/datagram.h"

#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;

Decoded Datagram::decode(ByteBuffer& buffer) {
    if (!Packet::decode(buffer)) {
        return foundation::unexpected("truncated datagram header");
    }
    auto number = readU24(buffer);
    if (!number) {
        return foundation::unexpected("truncated datagram header");
    }
    sequenceNumber = *number;
    while (buffer.readableBytes() > 0) {
        EncapsulatedPacket frame;
        if (auto decoded = frame.decode(buffer); !decoded) {
            return decoded;
        }
        packets.push_back(std::move(frame));
    }
    return {};
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
