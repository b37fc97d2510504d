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
#include "bridge/packets/resource_pack_client_response_packet.h"
#include "bridge/packets/resource_pack_stack_packet.h"
#include "bridge/packets/resource_packs_info_packet.h"
#include "bridge/packets/start_game_packet.h"
#include "bridge/packets/transfer_packet.h"
#include "bridge/packets/version_groups.h"
#include "bridge/packets/world_table_packets.h"
#include "bridge/portal_hop.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"
#include "foundation/printable_text.h"

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::Expected;
using foundation::fatalFault;
using foundation::printable;
using foundation::unexpected;

namespace {
constexpr int32_t negotiatingRakNetProtocol = 11;
// The chunks around the origin: -3 up to 2 on both axes, on purpose not symmetrical.
constexpr int32_t firstChunk = -3;
constexpr int32_t lastChunk = 2;
}  // namespace

PipedPlayer::PipedPlayer(std::shared_ptr<PortalHop> server, foundation::SocketAddress address,
                         std::shared_ptr<raknet::Connection> connection, int32_t raknetProtocol)
    : server(std::move(server)), address(std::move(address)), connection(std::move(connection)) {
    if (raknetProtocol != negotiatingRakNetProtocol) {
        framing.compression = CompressionAlgorithm::ZLIB;
    }
}

void PipedPlayer::print(const std::string& line) const { ServerLink::current()->print(line); }

int32_t PipedPlayer::layoutProtocol() const { return protocolVersion.value_or(requestedProtocol_.value_or(0)); }

void PipedPlayer::receiveBatch(ByteBuffer payload) {
    if (dropped_) {
        return;
    }
    BatchPacket batch(framing);
    // The frame's first byte (0xFE) is stepped over without a look.
    if (payload.readableBytes() > 0) {
        payload.moveReaderIndexForwardBy(1);
    }
    auto decoded = batch.decode(payload);
    if (!decoded) {
        drop(decoded.error());
        return;
    }
    auto packets = batch.getPackets();
    if (!packets) {
        drop(packets.error());
        return;
    }
    for (auto& packet : *packets) {
        auto handled = handlePacket(std::move(packet));
        if (!handled) {
            drop(handled.error());
            return;
        }
    }
}

Expected<void> PipedPlayer::handlePacket(ByteBuffer buffer) {
    auto header = foundation::readVarInt(buffer);
    if (!header) {
        return unexpected("packet without a header");
    }
    // The sub-client numbers sit above the id: above eight bits of it until
    // ids grew past 255, above ten since.
    uint64_t idBits = layoutProtocol() >= v567 ? 0x3FF : 0xFF;
    auto packetId = static_cast<uint16_t>(*header & idBits);
    print("packetId: " + std::to_string(packetId));

    switch (packetId) {
        case LoginPacket::networkId:
            return login(buffer);
        case ResourcePackClientResponsePacket::networkId:
            return resourcePackResponse(buffer);
        case SetLocalPlayerAsInitializedPacket::networkId:
            return initialized(buffer);
        case PacketViolationWarningPacket::networkId:
            return violationWarning(buffer);
        case RequestNetworkSettingsPacket::networkId:
            return networkSettingsRequest(buffer);
        case requestChunkRadiusId:
        case clientCacheStatusId:
        case serverboundLoadingScreenId:
        case resourcePacksReadyForValidationId:
            // Nothing a bridge needs to answer on the way to the transfer.
            return {};
        default:
            print("Unknown packet " + std::to_string(packetId));
            return {};
    }
}

Expected<void> PipedPlayer::login(ByteBuffer& body) {
    auto login = LoginPacket::decode(body);
    if (!login) {
        return unexpected(login.error());
    }
    if (login->displayName.empty()) {
        print("error in LoginPacket decoding!");
        DisconnectPacket disconnect(login->protocolVersion, "disconnectionScreen.internalError.cantConnect", false);
        sendPacket(disconnect);
        return {};
    }
    displayName = login->displayName;
    protocolVersion = login->protocolVersion;
    print("Protocol version: " + std::to_string(login->protocolVersion));
    noteProtocol(login->protocolVersion);
    PlayStatusPacket status(PlayStatusPacket::Status::LOGIN_SUCCESS);
    sendPacket(status);
    sendResourcePacksInfo();
    return {};
}

Expected<void> PipedPlayer::resourcePackResponse(ByteBuffer& body) {
    using Status = ResourcePackClientResponsePacket::Status;
    auto response = ResourcePackClientResponsePacket::decode(body, layoutProtocol());
    if (!response) {
        return unexpected(response.error());
    }
    print("ResourcePackResponsePacket status: " + std::string(caseName(response->status)));
    bool answered = response->status == Status::HAVE_ALL_PACKS || response->status == Status::COMPLETED;
    if (answered && !protocolVersion) {
        return unexpected("resource packs answered before the login");
    }
    if (response->status == Status::HAVE_ALL_PACKS) {
        sendResourcePackStack();
    } else if (response->status == Status::COMPLETED) {
        completeSpawn();
    }
    return {};
}

Expected<void> PipedPlayer::initialized(ByteBuffer& body) {
    auto initialized = SetLocalPlayerAsInitializedPacket::decode(body);
    if (!initialized) {
        return unexpected(initialized.error());
    }
    if (!displayName) {
        return unexpected("player initialised before the login");
    }
    print("Player inizialized " + printable(*displayName));
    if (!server) {
        fatalFault();
    }
    transfer(server->transferHost, server->transferPort);
    return {};
}

Expected<void> PipedPlayer::violationWarning(ByteBuffer& body) {
    auto warning = PacketViolationWarningPacket::decode(body);
    if (!warning) {
        return unexpected(warning.error());
    }
    print("Type: " + std::string(caseName(warning->type)) + " Serv: " + std::string(caseName(warning->severity)) +
          " Id: " + std::to_string(warning->id) + " Content: " + printable(warning->content));
    return {};
}

Expected<void> PipedPlayer::networkSettingsRequest(ByteBuffer& body) {
    auto request = RequestNetworkSettingsPacket::decode(body);
    if (!request) {
        return unexpected(request.error());
    }
    print("RequestNetworkSettingsPacket");
    requestedProtocol_ = request->protocolVersion;
    noteProtocol(request->protocolVersion);
    NetworkSettingsPacket settings;
    sendPacketImmediate(settings);
    // Only now: the settings themselves still go out as the client expects
    // them, in the framing it has so far.
    framing.compression = CompressionAlgorithm::ZLIB;
    framing.algorithmByte = request->protocolVersion >= v649;
    return {};
}

void PipedPlayer::noteProtocol(int32_t protocol) {
    if (protocol > newestKnownProtocol && !newerNoted_) {
        newerNoted_ = true;
        print("Protocol " + std::to_string(protocol) + " is newer than this bridge knows; it gets the layouts of " +
              std::to_string(newestKnownProtocol));
    }
}

void PipedPlayer::sendResourcePacksInfo() {
    ResourcePacksInfoPacket info(layoutProtocol());
    sendPacket(info);
}

void PipedPlayer::sendResourcePackStack() {
    ResourcePackStackPacket stack(layoutProtocol());
    sendPacket(stack);
}

void PipedPlayer::sendStartGame() {
    int32_t protocol = layoutProtocol();
    StartGamePacket start(protocol);
    if (protocol >= v526) {
        print("Bytes: " + std::to_string(StartGamePacket::propertyData().readableBytes()));
    }
    sendPacket(start);
    if (protocol >= v776) {
        ItemRegistryPacket items;
        sendPacket(items);
    }
    if (protocol >= v419) {
        CreativeContentPacket creative(protocol);
        sendPacket(creative);
    }
}

void PipedPlayer::completeSpawn() {
    int32_t protocol = layoutProtocol();
    // The order is what clients have accepted: the move ahead of the start-game
    // record, the tables behind the chunks.
    MovePlayerPacket move(protocol);
    sendPacket(move);
    sendStartGame();
    for (int32_t chunkX = firstChunk; chunkX <= lastChunk; ++chunkX) {
        for (int32_t chunkZ = firstChunk; chunkZ <= lastChunk; ++chunkZ) {
            LevelChunkPacket chunk(protocol, chunkX, chunkZ);
            sendPacket(chunk);
        }
    }
    BiomeDefinitionListPacket biomes(protocol);
    sendPacket(biomes);
    AvailableEntityIdentifiersPacket entities;
    sendPacket(entities);
    PlayStatusPacket spawn(PlayStatusPacket::Status::PLAYER_SPAWN);
    sendPacket(spawn);
}

void PipedPlayer::sendPacket(DataPacket& packet) { send(packet, Delivery::queued); }

void PipedPlayer::sendPacketImmediate(DataPacket& packet) { send(packet, Delivery::immediate); }

void PipedPlayer::send(DataPacket& packet, Delivery delivery) {
    BatchPacket batch(framing);
    batch.addPacket(packet);
    if (!server) {
        fatalFault();
    }
    auto listener = server->listener();
    if (!listener || !listener->channel) {
        fatalFault();
    }
    ByteBuffer frame = foundation::AdaptiveRecvByteBufferAllocator{}.buffer(listener->channel->allocator());
    PacketWriter out(frame);
    batch.encodeHeader(out);
    batch.encode(out);
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

void PipedPlayer::drop(const std::string& reason) {
    dropped_ = true;
    print("Dropped " + foundation::forced(address).ipAddress().value_or("?") + ":" +
          std::to_string(address->port().value_or(0)) + ": " + printable(reason));
    connection->disconnect(reason);
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
            DisconnectPacket disconnect(layoutProtocol(), "Invalid IP address", false);
            sendPacket(disconnect);
            return;
        }
        target = *numeric;
    }
    print("IP " + target + ":" + std::to_string(port));
    TransferPacket transferPacket(layoutProtocol(), target, static_cast<uint16_t>(port));
    sendPacketImmediate(transferPacket);
}

}  // namespace ferrylink::bridge
