#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "bridge/compression_algorithm.h"
#include "bridge/packets/data_packet.h"
#include "foundation/byte_buffer.h"
#include "foundation/expected.h"
#include "foundation/socket_address.h"
#include "raknet/connection.h"

namespace ferrylink::bridge {

class PortalHop;

// The server's side of one client: answers just enough for the client to
// believe it has joined a world (settings, login success, no packs, a
// start-game record in the client's layout, empty chunks, the spawn status),
// then sends the TransferPacket that names the real server. It forwards
// nothing and never talks to the real server.
//
// There's no state machine: each packet's action runs whatever came before,
// and a repeated packet is answered again. What needs the login (the packs'
// answers, the spawn) before it came, and bytes that make no sense, drop the
// client: one console line with its address and the reason, its connection
// closed, every other client served on. Every operation runs on the server's
// serverQueue.
class PipedPlayer {
public:
    // RakNet protocol 11 clients negotiate compression first and start
    // uncompressed; all older ones compress from their first packet on.
    PipedPlayer(std::shared_ptr<PortalHop> server, foundation::SocketAddress address,
                std::shared_ptr<raknet::Connection> connection, int32_t raknetProtocol);

    // One payload of the connection: the 0xFE frame and the packets in it, in
    // order. Nothing more is read from a client once it has been dropped.
    void receiveBatch(foundation::ByteBuffer payload);
    // One packet as cut out of a batch, starting with its header.
    foundation::Expected<void> handlePacket(foundation::ByteBuffer buffer);
    void completeSpawn();
    void sendStartGame();
    void sendResourcePacksInfo();
    void sendResourcePackStack();
    // Each packet travels in a batch of its own: queued for the connection's
    // next tick, or in a datagram of its own.
    void sendPacket(DataPacket& packet);
    void sendPacketImmediate(DataPacket& packet);
    // The hand-over: resolves `host` when the server asks for it, then sends
    // the TransferPacket, or "Invalid IP address" when the name won't resolve.
    void transfer(const std::string& host, int port);
    // The protocol whose layouts this client gets: the login's, else the one
    // its request for settings named, else the oldest.
    int32_t layoutProtocol() const;

    // Strong; emptied by the server's close step.
    std::shared_ptr<PortalHop> server;
    std::optional<std::string> displayName;
    std::optional<foundation::SocketAddress> address;
    std::shared_ptr<raknet::Connection> connection;
    // The game protocol, known from the login on.
    std::optional<int32_t> protocolVersion;
    BatchFraming framing;

private:
    enum class Delivery { queued, immediate };
    void send(DataPacket& packet, Delivery delivery);
    void print(const std::string& line) const;
    void drop(const std::string& reason);
    // Names a protocol above the newest known one on the console, once.
    void noteProtocol(int32_t protocol);

    foundation::Expected<void> login(foundation::ByteBuffer& body);
    foundation::Expected<void> resourcePackResponse(foundation::ByteBuffer& body);
    foundation::Expected<void> initialized(foundation::ByteBuffer& body);
    foundation::Expected<void> violationWarning(foundation::ByteBuffer& body);
    foundation::Expected<void> networkSettingsRequest(foundation::ByteBuffer& body);

    // The protocol of the request for settings, from v554 on.
    std::optional<int32_t> requestedProtocol_;
    bool newerNoted_ = false;
    bool dropped_ = false;
};

}  // namespace ferrylink::bridge
