#include "raknet/packets/connected_packets.h"

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;

namespace {

// The two trailing timestamps of NewIncomingConnection.
constexpr uint32_t TRAILING_TIMESTAMP_BYTES = 16;

}  // namespace

Decoded ConnectedPing::decode(ByteBuffer& buffer) {
    if (!Packet::decode(buffer) || !readField(buffer, clientTime)) {
        return foundation::unexpected("truncated ConnectedPing");
    }
    return {};
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

Decoded ConnectionRequest::decode(ByteBuffer& buffer) {
    if (!Packet::decode(buffer) ||
        !readField(buffer, clientId) ||
        !readField(buffer, timestamp)) {
        return foundation::unexpected("truncated ConnectionRequest");
    }
    // The security flag: read when present, never used.
    (void)buffer.readInteger<uint8_t>();
    return {};
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

Decoded NewIncomingConnection::decode(ByteBuffer& buffer) {
    // A lambda, so that the reason's text is made only on failure.
    auto truncated = [] { return Decoded(foundation::unexpected("truncated NewIncomingConnection")); };
    if (!Packet::decode(buffer)) {
        return truncated();
    }
    address = readAddress(buffer);
    if (!address) {
        return truncated();
    }
    nExtraAdresses = 0;
    while (buffer.readableBytes() > TRAILING_TIMESTAMP_BYTES) {
        if (!readAddress(buffer)) {
            return truncated();
        }
        ++nExtraAdresses;
    }
    if (!readField(buffer, pongTimestamp) || !readField(buffer, timestamp)) {
        return truncated();
    }
    return {};
}

}  // namespace ferrylink::raknet
