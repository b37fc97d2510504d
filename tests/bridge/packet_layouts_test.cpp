#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "bridge/packets/disconnect_packet.h"
#include "bridge/packets/level_chunk_packet.h"
#include "bridge/packets/move_player_packet.h"
#include "bridge/packets/network_settings_packet.h"
#include "bridge/packets/play_status_packet.h"
#include "bridge/packets/resource_pack_stack_packet.h"
#include "bridge/packets/resource_packs_info_packet.h"
#include "bridge/packets/start_game_packet.h"
#include "bridge/packets/transfer_packet.h"
#include "bridge/packets/version_groups.h"
#include "bridge/packets/world_table_packets.h"
#include "bridge/world_resources.h"
#include "support/hex.h"
#include "test_server_link.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using testing::bufferFromHex;

enum class Family {
    StartGame,
    ResourcePacksInfo,
    ResourcePackStack,
    CreativeContent,
    BiomeDefinitionList,
    LevelChunk,
    MovePlayer,
    Transfer,
    Disconnect,
};

// The packets as the session builds them, with a world template id that
// isn't random, so that rows can hold it.
std::unique_ptr<DataPacket> make(Family family, int32_t protocol) {
    switch (family) {
        case Family::StartGame: {
            auto start = std::make_unique<StartGamePacket>(protocol);
            start->world.worldTemplateId.emplace();
            start->world.worldTemplateId->fill(0xAB);
            return start;
        }
        case Family::ResourcePacksInfo:
            return std::make_unique<ResourcePacksInfoPacket>(protocol);
        case Family::ResourcePackStack:
            return std::make_unique<ResourcePackStackPacket>(protocol);
        case Family::CreativeContent:
            return std::make_unique<CreativeContentPacket>(protocol);
        case Family::BiomeDefinitionList:
            return std::make_unique<BiomeDefinitionListPacket>(protocol);
        case Family::LevelChunk:
            return std::make_unique<LevelChunkPacket>(protocol, -3, 2);
        case Family::MovePlayer:
            return std::make_unique<MovePlayerPacket>(protocol);
        case Family::Transfer:
            return std::make_unique<TransferPacket>(protocol, "10.0.0.1", 19132);
        case Family::Disconnect:
            return std::make_unique<DisconnectPacket>(protocol, "bye", false);
    }
    return nullptr;
}

ByteBuffer bodyOf(const DataPacket& packet, PacketWriter::VarInts varInts = PacketWriter::VarInts::protocolWriter) {
    ByteBuffer buffer;
    PacketWriter out(buffer, varInts);
    packet.encode(out);
    return buffer;
}

class PacketLayoutTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = testing::TestServerLink::installNew();
        WorldResources::set(WorldResource::requiredBlockStates, bufferFromHex("DE AD"));
        WorldResources::set(WorldResource::biomeDefinitions, bufferFromHex("B1"));
        WorldResources::set(WorldResource::entityIdentifiers, bufferFromHex("E1"));
    }
    std::shared_ptr<testing::TestServerLink> server;
};

// One row per layout of a family: its body from the first protocol of its
// group until the next row of the family. The world template id is AB*16.
struct Layout {
    Family family;
    VersionGroup from;
    std::string_view body;
};

constexpr Layout layouts[] = {
    {Family::StartGame, v408,
     "82 00 81 00 82 00*7 84 42 00*12 81 00*4 84 00 82 00*20 01 01 88 00 88 00 01 00*8 04 00*6 01 "
     "81 00 2A 00*11 89 00 4C 41 4E 20 50 72 6F 78 79 00*12 DE AD 00 00 01"},
    {Family::StartGame, v419,
     "82 00 81 00 82 00*7 84 42 00*12 81 00*4 84 00 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 01 "
     "81 00 2A 00*11 89 00 4C 41 4E 20 50 72 6F 78 79 00*16"},
    {Family::StartGame, v428,
     "82 00 81 00 82 00*7 84 42 00*12 81 00*4 84 00 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 01 "
     "81 00 2A 00*11 89 00 4C 41 4E 20 50 72 6F 78 79 00*18"},
    {Family::StartGame, v440,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F 81 00*5 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 81 00 2A 00*10 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 00 30*8 2D 30*4 "
     "2D 30*4 2D 30*4 2D 30*12 00*18"},
    {Family::StartGame, v465,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F 81 00*5 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 81 00 2A 00*12 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 00 30*8 2D 30*4 "
     "2D 30*4 2D 30*4 2D 30*12 00*18"},
    {Family::StartGame, v475,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F 81 00*5 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 87 00 31 2E 31 37 2E 34 30 00*12 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 "
     "00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*26"},
    {Family::StartGame, v503,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 87 00 31 2E 31 37 2E 34 30 00*12 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 "
     "00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*26"},
    {Family::StartGame, v526,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*20 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 87 00 31 2E 31 37 2E 34 30 00*12 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 "
     "00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16"},
    {Family::StartGame, v534,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*21 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 87 00 31 2E 31 37 2E 34 30 00*12 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 "
     "00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16"},
    {Family::StartGame, v544,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*21 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 87 00 31 2E 31 37 2E 34 30 00*14 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 "
     "79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16 00"},
    {Family::StartGame, v567,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*21 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*14 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16 00"},
    {Family::StartGame, v582,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*23 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*14 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16 00 00"},
    {Family::StartGame, v589,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*23 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*14 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v671,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*14 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v685,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*17 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*18 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v776,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*17 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*17 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v800,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*17 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00 82 00*16 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v818,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*18 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*16 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v827,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*18 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*16 0A 00*10 AB*16 00*4"},
    {Family::StartGame, v898,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*18 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*16 0A 00*10 AB*16 00 00 00"},
    {Family::StartGame, v924,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*14 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*16 0A 00*10 AB*16 00*8"},
    {Family::StartGame, v1001,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*16 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*16 0A 00*10 AB*16 00*9"},
    {Family::StartGame, v2168,
     "82 00 81 00 82 00*15 80 3F 00 00 80 3F FF*8 00*4 82 00*24 01 01 88 00 88 00 01 00*10 04 00*9 "
     "01 00 00 00 87 00 31 2E 31 37 2E 34 30 00*16 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F "
     "78 79 A4 00 30*8 2D 30*4 2D 30*4 2D 30*4 2D 30*12 00*16 0A 00*10 AB*16 00*8"},
    {Family::ResourcePacksInfo, v408, "00*6"},
    {Family::ResourcePacksInfo, v448, "00*7"},
    {Family::ResourcePacksInfo, v618, "00*8"},
    {Family::ResourcePacksInfo, v662, "00*9"},
    {Family::ResourcePacksInfo, v729, "00*6"},
    {Family::ResourcePacksInfo, v748, "00*5"},
    {Family::ResourcePacksInfo, v766, "00*22"},
    {Family::ResourcePacksInfo, v818, "00*23"},
    {Family::ResourcePacksInfo, v2168, "00*22"},
    {Family::ResourcePackStack, v408, "00*4 81 00 2A"},
    {Family::ResourcePackStack, v419, "00 00 00 81 00 2A 00*5"},
    {Family::ResourcePackStack, v671, "00 00 00 81 00 2A 00*6"},
    {Family::ResourcePackStack, v898, "00 00 81 00 2A 00*6"},
    {Family::CreativeContent, v408, "00"},
    {Family::CreativeContent, v776, "00 00"},
    {Family::BiomeDefinitionList, v408, "B1"},
    {Family::BiomeDefinitionList, v800, "00 00"},
    {Family::LevelChunk, v408, "85 00 84 00 00 00 82 82 00 0A 00*257"},
    {Family::LevelChunk, v649, "85 00 84 00*4 82 82 00 0A 00*257"},
    {Family::LevelChunk, v2168, "85 00 84 00*6 82 82 00 0A 00*257"},
    {Family::MovePlayer, v408, "81 00*29"},
    {Family::MovePlayer, v2168, "81 00*30"},
    {Family::Transfer, v408, "88 00 31 30 2E 30 2E 30 2E 31 BC 4A"},
    {Family::Transfer, v729, "88 00 31 30 2E 30 2E 30 2E 31 BC 4A 00"},
    {Family::Transfer, v2168, "88 00 31 30 2E 30 2E 30 2E 31 BC 4A 00 00"},
    {Family::Disconnect, v408, "00 83 00 62 79 65"},
    {Family::Disconnect, v622, "00 00 83 00 62 79 65"},
    {Family::Disconnect, v712, "00 00 83 00 62 79 65 00"},
};

TEST_F(PacketLayoutTest, EveryLayoutHoldsFromTheFirstToTheLastProtocolOfItsRange) {
    for (size_t i = 0; i < std::size(layouts); ++i) {
        const Layout& row = layouts[i];
        bool lastOfFamily = i + 1 == std::size(layouts) || layouts[i + 1].family != row.family;
        // The newest layout also serves clients newer than any we know.
        int32_t until = lastOfFamily ? newestKnownProtocol + 100 : layouts[i + 1].from.firstProtocol - 1;
        for (int32_t protocol : {row.from.firstProtocol, until}) {
            SCOPED_TRACE("family " + std::to_string(static_cast<int>(row.family)) + ", protocol " +
                         std::to_string(protocol));
            EXPECT_BYTES(bodyOf(*make(row.family, protocol)), row.body);
        }
    }
}

TEST_F(PacketLayoutTest, FixedPacketsAndHeadersThroughTheProtocolWriter) {
    struct Fixed {
        std::unique_ptr<DataPacket> packet;
        std::string_view header;
        std::string_view body;
    };
    Fixed fixed[] = {
        {std::make_unique<NetworkSettingsPacket>(), "8F 81 00", "01 00 00 00 00 00 00 00 00 00"},
        {std::make_unique<PlayStatusPacket>(PlayStatusPacket::Status::LOGIN_SUCCESS), "82 00", "00 00 00 00"},
        {std::make_unique<PlayStatusPacket>(PlayStatusPacket::Status::PLAYER_SPAWN), "82 00", "00 00 00 03"},
        {std::make_unique<ItemRegistryPacket>(), "A2 81 00", "00"},
        {std::make_unique<AvailableEntityIdentifiersPacket>(), "F7 00", "E1"},
        {make(Family::StartGame, 0), "8B 00", ""},
        {make(Family::CreativeContent, 0), "91 81 00", ""},
    };
    for (const auto& [packet, header, body] : fixed) {
        ByteBuffer bytes;
        PacketWriter out(bytes);
        packet->encodeHeader(out);
        EXPECT_BYTES(bytes, header);
        if (!body.empty()) {
            EXPECT_BYTES(bodyOf(*packet), body);
        }
    }
}

// Bytes that an independent serializer of the game protocol made for the same
// values, in the plain var-int form that clients write.
TEST_F(PacketLayoutTest, MatchesAReferenceSerializer) {
    struct Reference {
        int32_t protocol;
        const char* engine;
        std::string_view bytes;
    };
    constexpr Reference startGames[] = {
        {649, "1.20.61",
         "0b0201000000003f000082420000003f000000000000000000000000000000000000000002000200400000000000000000000000000000"
         "000000000101000000000000000000000000000000000000000000000000000000012a0000000000000000000000000000000557"
         "6f726c6400000200000000000000000000000000000007312e32302e36310a00000000000000000000000000000000000000000000"
         "00000000000000"},
        {766, "1.21.50",
         "0b0201000000003f000082420000003f000000000000000000000000000000000000000002000002004000000000000000000000000000"
         "00000000000101000000000000000000000000000000000000000000000000000000012a00000000000000000000000000000000"
         "000005576f726c6400000200000000000000000000000000000007312e32312e35300a000000000000000000000000000000000000"
         "0000000000000000000000"},
        {2193, "1.26.51",
         "0b0201000000003f000082420000003f000000000000000000000000000000000000000002000002008001000000000000000000000000"
         "0000000000000101000000000000000000000000000000000000000000000000000000012a0000000000000000000000000000000000"
         "05576f726c640000000000000000000000000000000007312e32362e35310a0000000000000000000000000000000000000000000000"
         "0000000000000000000000"},
    };
    for (const auto& reference : startGames) {
        SCOPED_TRACE(reference.engine);
        StartGamePacket start(reference.protocol);
        start.world = {.playerGameMode = 0, .positionX = 0.5f, .positionY = 65, .positionZ = 0.5f, .pitch = 0,
                       .yaw = 0, .seed = 0, .difficulty = 1, .spawnY = 64, .broadcastMode = 0,
                       .commandsEnabled = false, .serverChunkTickRange = 0, .onlySpawnV1Villagers = false,
                       .gameVersion = "*", .levelId = "", .worldName = "World", .premiumWorldTemplateId = "",
                       .movementAuthority = 1, .engine = reference.engine,
                       .worldTemplateId = std::array<uint8_t, 16>{}};
        ByteBuffer bytes;
        PacketWriter out(bytes, PacketWriter::VarInts::minimal);
        start.encodeHeader(out);
        start.encode(out);
        EXPECT_BYTES(bytes, reference.bytes);
    }
}

TEST_F(PacketLayoutTest, EachStartGameDrawsItsOwnWorldTemplateId) {
    const auto markedBody = bodyOf(*make(Family::StartGame, v2168.firstProtocol));
    const auto marked = markedBody.readableView();
    const auto idMark = testing::bytesFromHex("AB*16");
    const auto at = std::search(marked.begin(), marked.end(), idMark.begin(), idMark.end()) - marked.begin();
    std::vector<uint8_t> ids[2];
    for (auto& id : ids) {
        auto body = bodyOf(StartGamePacket(v2168.firstProtocol));
        auto bytes = body.readableView();
        ASSERT_EQ(bytes.size(), marked.size());
        id.assign(bytes.begin() + at, bytes.begin() + at + 16);
        // Everything but the id is the same as in the marked body.
        body.setBytes(idMark, static_cast<uint32_t>(at));
        EXPECT_EQ(body, markedBody);
    }
    EXPECT_NE(ids[0], ids[1]);
}

}  // namespace
}  // namespace ferrylink::bridge
