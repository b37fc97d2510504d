#include "raknet/packets/offline_packets.h"

#include <array>
#include <limits>

#include "foundation/fatal.h"
#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::forced;

namespace {

int16_t checkedMtu(int32_t mtu) {
    if (mtu < std::numeric_limits<int16_t>::min() || mtu > std::numeric_limits<int16_t>::max()) {
        foundation::fatalFault("mtu out of range");
    }
    return static_cast<int16_t>(mtu);
}

}  // namespace

void UnconnectedPing::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    clientTime = forced(buffer.readInteger<int64_t>());
    readMagic(buffer);
    clientId = forced(buffer.readInteger<int64_t>());
}

void UnconnectedPing::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    buffer.writeInteger(clientTime);
    writeMagic(buffer);
    buffer.writeInteger(clientId);
}

void UnconnectedPong::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    clientTime = forced(buffer.readInteger<int64_t>());
    serverId = forced(buffer.readInteger<int64_t>());
    readMagic(buffer);
    info = readString(buffer);
}

void UnconnectedPong::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    buffer.writeInteger(clientTime);
    buffer.writeInteger(serverId);
    writeMagic(buffer);
    writeString(buffer, info);
}

void OpenConnectionRequest1::decode(ByteBuffer& buffer) {
    // The whole datagram, id byte included, is the peer's MTU here.
    mtu = static_cast<int32_t>(buffer.readableBytes());
    Packet::decode(buffer);
    readMagic(buffer);
    protocolVersion = forced(buffer.readInteger<int8_t>());
    // The padding is neither checked nor kept.
    buffer.moveReaderIndex(buffer.writerIndex());
}

void OpenConnectionReply1::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    writeMagic(buffer);
    buffer.writeInteger(serverId);
    buffer.writeInteger<uint8_t>(0);  // no security
    buffer.writeInteger(checkedMtu(mtu));
}

void OpenConnectionRequest2::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    readMagic(buffer);
    address = readAddress(buffer);
    mtu = forced(buffer.readInteger<uint16_t>());
    clientId = forced(buffer.readInteger<int64_t>());
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
