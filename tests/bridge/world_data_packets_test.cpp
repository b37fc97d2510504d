#include <gtest/gtest.h>

#include <string>

#include "bridge/packets/level_chunk_packet.h"
#include "bridge/packets/world_table_packets.h"
#include "bridge/world_resources.h"
#include "packet_bytes.h"
#include "support/hex.h"
#include "test_server_link.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using testing::bodyOf;
using testing::bufferFromHex;
using testing::headerOf;

std::string zeros(int count) {
    std::string hex;
    for (int i = 0; i < count; ++i) {
        hex += " 00";
    }
    return hex;
}

class WorldDataPacketsTest : public ::testing::Test {
protected:
    void SetUp() override { testing::TestServerLink::installNew(); }
};

TEST_F(WorldDataPacketsTest, ChunkAtTheFirstCornerIs267Bytes) {
    LevelChunkPacket packet(-3, -3);
    EXPECT_BYTES(headerOf(packet), "BA 00");
    ByteBuffer body = bodyOf(packet);
    EXPECT_EQ(body.readableBytes(), 267u);
    EXPECT_BYTES(body, "85 00 85 00 00 00 82 82 00 0A 00 00" + zeros(255));
}

TEST_F(WorldDataPacketsTest, ChunkAtTheOriginIs265Bytes) {
    LevelChunkPacket packet(0, 0);
    ByteBuffer body = bodyOf(packet);
    EXPECT_EQ(body.readableBytes(), 265u);
    EXPECT_BYTES(body, "00 00 00 00 82 82 00 0A 00 00" + zeros(255));
}

TEST_F(WorldDataPacketsTest, ChunkCoordinatesAreZigZagThroughTheProtocolWriter) {
    LevelChunkPacket packet(2, -1);
    EXPECT_BYTES(ByteBuffer(bodyOf(packet).getBytes(0, 4).value()), "84 00 81 00");
    // 64 zig-zags to 128, which the writer cuts to the lone byte 80.
    LevelChunkPacket far(64, 0);
    EXPECT_BYTES(ByteBuffer(bodyOf(far).getBytes(0, 2).value()), "80 00");
}

TEST_F(WorldDataPacketsTest, CreativeContentIsTheItemCountZero) {
    CreativeContentPacket packet;
    EXPECT_BYTES(headerOf(packet), "91 81 00");
    EXPECT_BYTES(bodyOf(packet), "00");
}

TEST_F(WorldDataPacketsTest, TablePacketsCarryTheirFilesAsTheyStand) {
    WorldResources::set(WorldResource::biomeDefinitions, bufferFromHex("0A 00 01 02 03"));
    WorldResources::set(WorldResource::entityIdentifiers, bufferFromHex("0A 00 09"));
    BiomeDefinitionListPacket biomes;
    AvailableEntityIdentifiersPacket entities;
    EXPECT_BYTES(headerOf(biomes), "FA 00");
    EXPECT_BYTES(headerOf(entities), "F7 00");
    EXPECT_BYTES(bodyOf(biomes), "0A 00 01 02 03");
    EXPECT_BYTES(bodyOf(entities), "0A 00 09");

    WorldResources::set(WorldResource::biomeDefinitions, ByteBuffer());
    BiomeDefinitionListPacket empty;
    EXPECT_EQ(bodyOf(empty).readableBytes(), 0u);
}

TEST(WorldDataPacketsDeathTest, TableNeverLoadedIsFatal) {
    EXPECT_DEATH(
        {
            WorldResources::set(WorldResource::entityIdentifiers, std::nullopt);
            AvailableEntityIdentifiersPacket packet;
            bodyOf(packet);
        },
        "");
}

TEST(WorldDataPacketsDeathTest, ChunkWithoutAServerIsFatal) {
    EXPECT_DEATH(
        {
            ServerLink::install(nullptr);
            LevelChunkPacket packet(0, 0);
            bodyOf(packet);
        },
        "");
}

}  // namespace
}  // namespace ferrylink::bridge
