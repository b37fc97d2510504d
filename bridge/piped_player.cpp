#include "bridge/piped_player.h"

#include "bridge/packets/batch_packet.h"
#include "bridge/packets/client_signal_packets.h"
#include "bridge/packets/disconnect_packet.h"
#include "bridge/packets/level_chunk_packet.h"
#include "bridge/packets/login_packet.h"
#include "bridge/packets/move_player_packet.h"
#include "bridge/packets/network_settings_packet.h"
#include "bridge/packets/packet_violation_warning_packet.h"
#include "bridge/packets/play_status_packet.h"
#include "bridge/packets/protocol_variants.h"
#include "bridge/packets/resource_pack_client_response_packet.h"
#include "bridge/packets/transfer_packet.h"
#include "bridge/packets/world_table_packets.h"
#include "bridge/portal_hop.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::fatalFault;
using foundation::forced;

namespace {
constexpr int32_t negotiatingRakNetProtocol = 11;
// The chunks around the origin: -3 up to 2 on both axes, on purpose not symmetrical.
constexpr int32_t firstChunk = -3;
constexpr int32_t lastChunk = 2;
}  // namespace

PipedPlayer::PipedPlayer(std::shared_ptr<PortalHop> server, foundation::SocketAddress address,
                         std::shared_ptr<raknet::Connection> connection, int32_t raknetProtocol)
    : server(std::move(server)),
      address(std::move(address)),
      connection(std::move(connection)),
      compressionAlgorithm(raknetProtocol == negotiatingRakNetProtocol ? CompressionAlgorithm::NONE
                                                                       : CompressionAlgorithm::ZLIB) {}

void PipedPlayer::print(const std::string& line) const { ServerLink::current()->print(line); }

void PipedPlayer::handlePacket(ByteBuffer buffer) {
    uint64_t header = forced(foundation::readVarInt(buffer));
    buffer.moveReaderIndex(0);
    // The sub-client numbers above the low eight bits are never looked at.
    auto packetId = static_cast<uint8_t>(header & 0xFF);
    print("packetId: " + std::to_string(packetId));

    switch (packetId) {
        case LoginPacket::networkId: {
            LoginPacket login;
            foundation::readVarInt(buffer);
            login.decode(buffer);
            if (!login.displayName.empty()) {
                displayName = login.displayName;
                protocolVersion = login.protocolVersion;
                print("Protocol version: " + std::to_string(login.protocolVersion));
                PlayStatusPacket status(PlayStatusPacket::Status::LOGIN_SUCCESS);
                sendPacket(status);
                sendResourcePacksInfo();
            } else {
                print("error in LoginPacket decoding!");
                DisconnectPacket disconnect("disconnectionScreen.internalError.cantConnect", false);
                sendPacket(disconnect);
            }
            break;
        }
        case ResourcePackClientResponsePacket::networkId: {
            ResourcePackClientResponsePacket response;
            foundation::readVarInt(buffer);
            response.decode(buffer);
            print("ResourcePackResponsePacket status: " + std::string(caseName(response.status)));
            if (response.status == ResourcePackClientResponsePacket::Status::HAVE_ALL_PACKS) {
                sendResourcePackStack();
            } else if (response.status == ResourcePackClientResponsePacket::Status::COMPLETED) {
                completeSpawn();
            }
            break;
        }
        case SetLocalPlayerAsInitializedPacket::networkId: {
            print("Player inizialized " + forced(displayName));
            if (!server) {
                fatalFault();
            }
            transfer(server->transferHost, server->transferPort);
            break;
        }
        case PacketViolationWarningPacket::networkId: {
            PacketViolationWarningPacket warning;
            foundation::readVarInt(buffer);
            warning.decode(buffer);
            print("Type: " + std::string(caseName(warning.type)) + " Serv: " + std::string(caseName(warning.severity)) +
                  " Id: " + std::to_string(warning.id) + " Content: " + warning.content);
            break;
        }
        case RequestNetworkSettingsPacket::networkId: {
            print("RequestNetworkSettingsPacket");
            NetworkSettingsPacket settings;
            sendPacketImmediate(settings);
            // Only now: the settings themselves still go out as the client
            // expects them, uncompressed.
            compressionAlgorithm = CompressionAlgorithm::ZLIB;
            break;
        }
        default:
            print("Unknown packet " + std::to_string(packetId));
            break;
    }
}

void PipedPlayer::sendResourcePacksInfo() { sendPacket(*resourcePacksInfoFor(forced(protocolVersion))); }

void PipedPlayer::sendResourcePackStack() { sendPacket(*resourcePackStackFor(forced(protocolVersion))); }

void PipedPlayer::sendStartGame() {
    int32_t protocol = forced(protocolVersion);
    sendPacket(*startGameFor(protocol));
    if (wantsCreativeContent(protocol)) {
        CreativeContentPacket creative;
        sendPacket(creative);
    }
}

void PipedPlayer::completeSpawn() {
    // The order is what clients have accepted: the move ahead of the start-game
    // record, the tables behind the chunks.
    MovePlayerPacket move;
    sendPacket(move);
    sendStartGame();
    for (int32_t chunkX = firstChunk; chunkX <= lastChunk; ++chunkX) {
        for (int32_t chunkZ = firstChunk; chunkZ <= lastChunk; ++chunkZ) {
            LevelChunkPacket chunk(chunkX, chunkZ);
            sendPacket(chunk);
        }
    }
    BiomeDefinitionListPacket biomes;
    sendPacket(biomes);
    AvailableEntityIdentifiersPacket entities;
    sendPacket(entities);
    PlayStatusPacket spawn(PlayStatusPacket::Status::PLAYER_SPAWN);
    sendPacket(spawn);
}

void PipedPlayer::sendPacket(DataPacket& packet) { send(packet, Delivery::queued); }

void PipedPlayer::sendPacketImmediate(DataPacket& packet) { send(packet, Delivery::immediate); }

void PipedPlayer::send(DataPacket& packet, Delivery delivery) {
    BatchPacket batch(compressionAlgorithm);
    batch.addPacket(packet);
    if (!server) {
        fatalFault();
    }
    auto listener = server->listener();
    if (!listener || !listener->channel) {
        fatalFault();
    }
    ByteBuffer frame = foundation::AdaptiveRecvByteBufferAllocator{}.buffer(listener->channel->allocator());
    frame.writeInteger<uint8_t>(batch.NetworkId);
    batch.encode(frame);
    batch.encoded = true;
    if (!connection) {
        fatalFault();
    }
    if (delivery == Delivery::immediate) {
        connection->sendBufferImmediate(frame);
    } else {
        connection->sendBuffer(frame);
    }
}

void PipedPlayer::transfer(const std::string& host, int port) {
    if (!server) {
        fatalFault();
    }
    std::string target = host;
    if (server->resolveIp) {
        // Blocks this server's queue, and with it every client, while it runs.
        std::optional<foundation::SocketAddress> resolved;
        try {
            resolved = foundation::SocketAddress::makeResolving(host, port);
        } catch (const std::exception& error) {
            print(std::string("Error ") + error.what());
        }
        std::optional<std::string> numeric = resolved ? resolved->ipAddress() : std::nullopt;
        if (!numeric) {
            DisconnectPacket disconnect("Invalid IP address", false);
            sendPacket(disconnect);
            return;
        }
        target = *numeric;
    }
    print("IP " + target + ":" + std::to_string(port));
    TransferPacket transferPacket(target, static_cast<uint16_t>(port));
    sendPacketImmediate(transferPacket);
}

}  // namespace ferrylink::bridge
