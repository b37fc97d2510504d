#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/socket_address.h"
#include "raknet/packets/packet.h"

// The packets a peer sends before it has a connection. Decoders fail on short
// input; whether a packet that decodes is acceptable (its magic, its protocol
// version) is for the caller to decide.
namespace ferrylink::raknet {

// 0x01, 33 bytes: id, clientTime, magic, clientId.
class UnconnectedPing : public OfflinePacket {
public:
    UnconnectedPing() : OfflinePacket(0x01) {}
    Decoded decode(foundation::ByteBuffer& buffer) override;
    void encode(foundation::ByteBuffer& buffer) const override;

    int64_t clientTime = -1;
    int64_t clientId = -1;
};

// 0x1C: id, clientTime, serverId, magic, info as a string (the advert).
class UnconnectedPong : public OfflinePacket {
public:
    UnconnectedPong() : OfflinePacket(0x1C) {}
    Decoded decode(foundation::ByteBuffer& buffer) override;
    void encode(foundation::ByteBuffer& buffer) const override;

    int64_t clientTime = -1;
    int64_t serverId = -1;
    std::string info;
};

// 0x05: id, magic, protocolVersion (1 byte), padding. `mtu` is the length of
// the whole datagram, id byte included, and nothing added for IP or UDP headers.
class OpenConnectionRequest1 : public OfflinePacket {
public:
    OpenConnectionRequest1() : OfflinePacket(0x05) {}
    Decoded decode(foundation::ByteBuffer& buffer) override;

    int32_t protocolVersion = -1;
    int32_t mtu = -1;
};

// 0x06, 28 bytes: id, magic, serverId, 0, mtu (2).
class OpenConnectionReply1 : public OfflinePacket {
public:
    OpenConnectionReply1() : OfflinePacket(0x06) {}
    void encode(foundation::ByteBuffer& buffer) const override;

    int64_t serverId = -1;
    int32_t mtu = -1;
};

// 0x07: id, magic, address, mtu (2, unsigned), clientId.
class OpenConnectionRequest2 : public OfflinePacket {
public:
    OpenConnectionRequest2() : OfflinePacket(0x07) {}
    Decoded decode(foundation::ByteBuffer& buffer) override;

    int32_t mtu = -1;
    int64_t clientId = -1;
    std::optional<foundation::SocketAddress> address;
};

// 0x08: id, magic, serverId, address (0.0.0.0:19132 when empty), mtu (2), 0.
class OpenConnectionReply2 : public OfflinePacket {
public:
    OpenConnectionReply2() : OfflinePacket(0x08) {}
    void encode(foundation::ByteBuffer& buffer) const override;

    int64_t serverId = -1;
    int32_t mtu = -1;
    std::optional<foundation::SocketAddress> socketAddress;
};

// 0x19, 26 bytes: id, protocolVersion (1), magic, serverId.
class IncompatibleProtocolVersion : public OfflinePacket {
public:
    IncompatibleProtocolVersion() : OfflinePacket(0x19) {}
    void encode(foundation::ByteBuffer& buffer) const override;

    int32_t protocolVersion = -1;
    int64_t serverId = -1;
};

// 0x15. Never coded on its own: it travels as the one-byte payload of a frame.
class DisconnectNotification : public OfflinePacket {
public:
    DisconnectNotification() : OfflinePacket(0x15) {}
};

}  // namespace ferrylink::raknet
