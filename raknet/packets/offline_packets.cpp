#include "raknet/packets/offline_packets.h"

#include <array>
#include <limits>

#include "foundation/fatal.h"
#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;

namespace {

int16_t checkedMtu(int32_t mtu) {
    if (mtu < std::numeric_limits<int16_t>::min() || mtu > std::numeric_limits<int16_t>::max()) {
        foundation::fatalFault("mtu out of range");
    }
    return static_cast<int16_t>(mtu);
}

}  // namespace

Decoded UnconnectedPing::decode(ByteBuffer& buffer) {
    if (!Packet::decode(buffer) ||
        !readField(buffer, clientTime) ||
        !readMagic(buffer) ||
        !readField(buffer, clientId)) {
        return foundation::unexpected("truncated UnconnectedPing");
    }
    return {};
}

void UnconnectedPing::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    buffer.writeInteger(clientTime);
    writeMagic(buffer);
    buffer.writeInteger(clientId);
}

Decoded UnconnectedPong::decode(ByteBuffer& buffer) {
    if (!Packet::decode(buffer) ||
        !readField(buffer, clientTime) ||
        !readField(buffer, serverId) ||
        !readMagic(buffer)) {
        return foundation::unexpected("truncated UnconnectedPong");
    }
    auto text = readString(buffer);
    if (!text) {
        return foundation::unexpected("advert length past the end");
    }
    info = std::move(*text);
    return {};
}

void UnconnectedPong::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    buffer.writeInteger(clientTime);
    buffer.writeInteger(serverId);
    writeMagic(buffer);
    writeString(buffer, info);
}

Decoded OpenConnectionRequest1::decode(ByteBuffer& buffer) {
    // The whole datagram, id byte included, is the peer's MTU here.
    mtu = static_cast<int32_t>(buffer.readableBytes());
    int8_t version = 0;
    if (!Packet::decode(buffer) ||
        !readMagic(buffer) ||
        !readField(buffer, version)) {
        return foundation::unexpected("truncated OpenConnectionRequest1");
    }
    protocolVersion = version;
    // The padding is neither checked nor kept.
    buffer.moveReaderIndex(buffer.writerIndex());
    return {};
}

void OpenConnectionReply1::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    writeMagic(buffer);
    buffer.writeInteger(serverId);
    buffer.writeInteger<uint8_t>(0);  // no security
    buffer.writeInteger(checkedMtu(mtu));
}

Decoded OpenConnectionRequest2::decode(ByteBuffer& buffer) {
    if (!Packet::decode(buffer) || !readMagic(buffer)) {
        return foundation::unexpected("truncated OpenConnectionRequest2");
    }
    address = readAddress(buffer);
    uint16_t requested = 0;
    if (!address ||
        !readField(buffer, requested) ||
        !readField(buffer, clientId)) {
        return foundation::unexpected("truncated OpenConnectionRequest2");
    }
    mtu = requested;
    return {};
}

void OpenConnectionReply2::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    writeMagic(buffer);
    buffer.writeInteger(serverId);
    if (socketAddress) {
        writeAddress(buffer, *socketAddress);
    } else {
        writeIPv4(buffer, "0.0.0.0", 19132);
    }
    buffer.writeInteger(checkedMtu(mtu));
    buffer.writeInteger<uint8_t>(0);  // no encryption
}

void IncompatibleProtocolVersion::encode(ByteBuffer& buffer) const {
    if (protocolVersion < 0 || protocolVersion > 255) {
        foundation::fatalFault("protocol version out of range");
    }
    buffer.writeInteger(id);
    buffer.writeInteger(static_cast<uint8_t>(protocolVersion));
    writeMagic(buffer);
    buffer.writeInteger(serverId);
}

}  // namespace ferrylink::raknet
