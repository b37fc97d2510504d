#pragma once

#include <cstdint>
#include <optional>

#include "foundation/socket_address.h"
#include "raknet/packets/packet.h"

// The control packets inside frames of a live connection. Big-endian throughout.
namespace ferrylink::raknet {

// 0x00, 9 bytes: id, clientTime.
class ConnectedPing : public Packet {
public:
    ConnectedPing() : Packet(0x00) {}
    Decoded decode(foundation::ByteBuffer& buffer) override;
    void encode(foundation::ByteBuffer& buffer) const override;

    int64_t clientTime = -1;
};

// 0x03, 17 bytes: id, clientTime, serverTime.
class ConnectedPong : public Packet {
public:
    ConnectedPong() : Packet(0x03) {}
    void encode(foundation::ByteBuffer& buffer) const override;

    int64_t clientTime = -1;
    int64_t serverTime = -1;
};

// 0x09: id, clientId, timestamp, then a security byte that is read if present and dropped.
class ConnectionRequest : public Packet {
public:
    ConnectionRequest() : Packet(0x09) {}
    Decoded decode(foundation::ByteBuffer& buffer) override;

    int64_t clientId = -1;
    int64_t timestamp = -1;
};

// 0x10: id, the peer's address, 0 (2), 127.0.0.1:19132, then nExtraAdresses - 1
// times 0.0.0.0:19132 (always IPv4), timestamp, the current time.
// 166 bytes for an IPv4 peer with the 20 addresses always used.
class ConnectionRequestAccepted : public Packet {
public:
    ConnectionRequestAccepted() : Packet(0x10) {}
    // nExtraAdresses below 1 is a fatal fault.
    void encode(foundation::ByteBuffer& buffer) const override;

    std::optional<foundation::SocketAddress> address;
    int64_t timestamp = -1;
    int32_t nExtraAdresses = 0;
};

// 0x13: id, address, any number of addresses, pongTimestamp, timestamp.
class NewIncomingConnection : public Packet {
public:
    NewIncomingConnection() : Packet(0x13) {}
    // Reads extra addresses for as long as more than 16 bytes remain.
    Decoded decode(foundation::ByteBuffer& buffer) override;

    int64_t timestamp = -1;
    int64_t pongTimestamp = -1;
    std::optional<foundation::SocketAddress> address;
    int32_t nExtraAdresses = 0;
};

}  // namespace ferrylink::raknet
