#include "raknet/packets/connected_packets.h"

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::forced;

namespace {

// The two trailing timestamps of NewIncomingConnection.
constexpr uint32_t TRAILING_TIMESTAMP_BYTES = 16;

}  // namespace

void ConnectedPing::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    clientTime = forced(buffer.readInteger<int64_t>());
}

void ConnectedPing::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    buffer.writeInteger(clientTime);
}

void ConnectedPong::encode(ByteBuffer& buffer) const {
    buffer.writeInteger(id);
    buffer.writeInteger(clientTime);
    buffer.writeInteger(serverTime);
}

void ConnectionRequest::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    clientId = forced(buffer.readInteger<int64_t>());
    timestamp = forced(buffer.readInteger<int64_t>());
    // The security flag: read when present, never used.
    (void)buffer.readInteger<uint8_t>();
}

void ConnectionRequestAccepted::encode(ByteBuffer& buffer) const {
    if (nExtraAdresses < 1) {
        foundation::fatalFault("ConnectionRequestAccepted needs at least one address");
    }
    buffer.writeInteger(id);
    if (address) {
        writeAddress(buffer, *address);
    }
    buffer.writeInteger<int16_t>(0);  // system index
    // The filler addresses are IPv4 whatever the peer's family.
    writeIPv4(buffer, "127.0.0.1", 19132);
    for (int32_t i = 1; i < nExtraAdresses; ++i) {
        writeIPv4(buffer, "0.0.0.0", 19132);
    }
    buffer.writeInteger(timestamp);
    buffer.writeInteger(foundation::Clock::currentTimeMillis());
}

void NewIncomingConnection::decode(ByteBuffer& buffer) {
    Packet::decode(buffer);
    address = readAddress(buffer);
    nExtraAdresses = 0;
    while (buffer.readableBytes() > TRAILING_TIMESTAMP_BYTES) {
        (void)readAddress(buffer);
        ++nExtraAdresses;
    }
    pongTimestamp = forced(buffer.readInteger<int64_t>());
    timestamp = forced(buffer.readInteger<int64_t>());
}

}  // namespace ferrylink::raknet
