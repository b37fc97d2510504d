#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "bridge/compression_algorithm.h"
#include "bridge/packets/data_packet.h"
#include "foundation/byte_buffer.h"
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
// and a repeated packet is answered again. Every operation runs on the
// server's serverQueue.
class PipedPlayer {
public:
    // RakNet protocol 11 clients negotiate compression first and start
    // uncompressed; all older ones compress from their first packet on.
    PipedPlayer(std::shared_ptr<PortalHop> server, foundation::SocketAddress address,
                std::shared_ptr<raknet::Connection> connection, int32_t raknetProtocol);

    // One packet as cut out of a batch, starting with its header.
    void handlePacket(foundation::ByteBuffer buffer);
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

    // Strong; emptied by the server's close step.
    std::shared_ptr<PortalHop> server;
    std::optional<std::string> displayName;
    std::optional<foundation::SocketAddress> address;
    std::shared_ptr<raknet::Connection> connection;
    // The game protocol, known from the login on.
    std::optional<int32_t> protocolVersion;
    CompressionAlgorithm compressionAlgorithm;

private:
    enum class Delivery { queued, immediate };
    void send(DataPacket& packet, Delivery delivery);
    void print(const std::string& line) const;
};

}  // namespace ferrylink::bridge
