#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The start-game record of a small empty world that exists nowhere, in the
// layout of the client's protocol: one run of every field the record has had
// since 1.16, each behind the gate of the groups that carry it.
//
// The values describe the bridge's fake world and differ a little by group,
// as clients have seen them (see StartGamePacket::World). Two packets for one
// protocol have the same bytes, apart from the random world template id from
// v526 on.
class StartGamePacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;

    // The world's values that are not zero, empty or false in some group.
    struct World {
        int64_t entityId = 1;
        uint64_t runtimeEntityId = 1;
        int32_t playerGameMode = 1;
        float positionX = 0;
        float positionY = 0;
        float positionZ = 0;
        float pitch = 1;
        float yaw = 1;
        int64_t seed = -1;
        int32_t dimension = 0;
        int32_t generator = 1;
        int32_t difficulty = 0;
        int32_t spawnX = 0;
        int32_t spawnY = 0;
        int32_t spawnZ = 0;
        // Both the Xbox Live and the platform broadcast mode.
        int32_t broadcastMode = 4;
        bool commandsEnabled = true;
        int32_t serverChunkTickRange = 4;
        bool onlySpawnV1Villagers = true;
        std::string gameVersion = "1.17.40";
        std::string levelId = "world";
        std::string worldName = "LAN Proxy";
        std::string premiumWorldTemplateId = "00000000-0000-0000-0000-000000000000";
        int32_t movementAuthority = 0;
        std::string engine;
        // Drawn anew for every encoding when empty.
        std::optional<std::array<uint8_t, 16>> worldTemplateId;
    };

    // The fake world as the client of `protocol` gets it.
    static World worldFor(int32_t protocol);

    explicit StartGamePacket(int32_t protocol) : DataPacket(networkId), protocol(protocol), world(worldFor(protocol)) {}

    const int32_t protocol;
    World world;

    // The property data the record carries from v526 on: an empty tag
    // compound, whose size a session logs with each record it sends.
    static foundation::ByteBuffer propertyData();

    // Up to v419 the block palette follows the enchantment seed: the server's
    // resource file, fatal when it was never loaded. From v526 on each
    // encoding draws a new world template id.
    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
