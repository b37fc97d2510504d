#include "bridge/packets/start_game_packet.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

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
using testing::hexOf;

constexpr std::string_view palette = "DE AD BE EF 42";

// The oldest layout with the palette in its place.
constexpr std::string_view oldestBodyBeforePalette =
    "82 00 81 00 82 00 00 00 00 00 00 00 84 42 00 00 00 00 00 00 00 00 00 00 00 00 81 00 00 00 00 84 00 82 00 00 "
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 01 88 00 88 00 01 00 00 00 00 00 00 00 00 04 00 00 "
    "00 00 00 00 01 81 00 2A 00 00 00 00 00 00 00 00 00 00 00 89 00 4C 41 4E 20 50 72 6F 78 79 00 00 00 00 00 00 "
    "00 00 00 00 00 00";
constexpr std::string_view oldestBodyAfterPalette = "00 00 01";

// The newest layout; the sixteen random bytes of the world template id stand
// between the two halves.
constexpr std::string_view newestBodyBeforeRandom =
    "82 00 81 00 82 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 80 3F 00 00 80 3F FF FF FF FF FF FF FF FF 00 00 "
    "00 00 82 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 01 88 00 88 00 01 00 00 00 00 00 "
    "00 00 00 00 00 04 00 00 00 00 00 00 00 00 00 01 00 00 87 00 31 2E 31 37 2E 34 30 00 00 00 00 00 00 00 00 00 "
    "00 00 00 00 00 85 00 77 6F 72 6C 64 89 00 4C 41 4E 20 50 72 6F 78 79 A4 00 30 30 30 30 30 30 30 30 2D 30 30 "
    "30 30 2D 30 30 30 30 2D 30 30 30 30 2D 30 30 30 30 30 30 30 30 30 30 30 30 00 00 00 00 00 00 00 00 00 00 00 "
    "00 00 00 00 00 00 00 0A 00 00 00 00 00 00 00 00 00 00";
constexpr std::string_view newestBodyAfterRandom = "00";

class StartGamePacketTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = testing::TestServerLink::installNew();
        WorldResources::set(WorldResource::requiredBlockStates, bufferFromHex(palette));
    }
    std::shared_ptr<testing::TestServerLink> server;
};

TEST_F(StartGamePacketTest, OldestLayoutCarriesThePaletteAndTheBigEndianTickRadius) {
    StartGamePacket packet;
    EXPECT_BYTES(headerOf(packet), "8B 00");
    ByteBuffer body = bodyOf(packet);
    EXPECT_EQ(body.readableBytes(), 117u + 5u);
    EXPECT_BYTES(body, std::string(oldestBodyBeforePalette) + " " + std::string(palette) + " " +
                           std::string(oldestBodyAfterPalette));
}

TEST_F(StartGamePacketTest, NewestLayoutMatchesWithTheRandomWordsMasked) {
    StartGamePacket_544 packet;
    ByteBuffer body = bodyOf(packet);
    ASSERT_EQ(body.readableBytes(), 215u);
    ByteBuffer before(body.getBytes(0, 198).value());
    ByteBuffer after(body.getBytes(214, 1).value());
    EXPECT_BYTES(before, newestBodyBeforeRandom);
    EXPECT_BYTES(after, newestBodyAfterRandom);
    EXPECT_EQ(server->lines(), std::vector<std::string>{"Bytes: 3"});
}

struct LayoutCase {
    std::string name;
    std::function<std::unique_ptr<DataPacket>()> make;
    uint32_t length;
};

class StartGameLayoutLength : public StartGamePacketTest, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(StartGameLayoutLength, BodyHasTheLengthOfItsLayout) {
    auto packet = GetParam().make();
    EXPECT_EQ(packet->NetworkId, 11);
    EXPECT_EQ(bodyOf(*packet).readableBytes(), GetParam().length);
}

INSTANTIATE_TEST_SUITE_P(
    AllTen, StartGameLayoutLength,
    ::testing::Values(LayoutCase{"Base", [] { return std::make_unique<StartGamePacket>(); }, 117 + 5},
                      LayoutCase{"L419", [] { return std::make_unique<StartGamePacket_419>(); }, 123},
                      LayoutCase{"L428", [] { return std::make_unique<StartGamePacket_428>(); }, 125},
                      LayoutCase{"L440", [] { return std::make_unique<StartGamePacket_440>(); }, 168},
                      LayoutCase{"L465", [] { return std::make_unique<StartGamePacket_465>(); }, 170},
                      LayoutCase{"L475", [] { return std::make_unique<StartGamePacket_475>(); }, 184},
                      LayoutCase{"L503", [] { return std::make_unique<StartGamePacket_503>(); }, 190},
                      LayoutCase{"L526", [] { return std::make_unique<StartGamePacket_526>(); }, 209},
                      LayoutCase{"L534", [] { return std::make_unique<StartGamePacket_534>(); }, 210},
                      LayoutCase{"L544", [] { return std::make_unique<StartGamePacket_544>(); }, 215}),
    [](const auto& info) { return info.param.name; });

TEST_F(StartGamePacketTest, SecondLayoutDropsThePaletteAndTurnsTheTickRadiusLittleEndian) {
    StartGamePacket_419 packet;
    ByteBuffer body = bodyOf(packet);
    std::string hex = hexOf(body);
    EXPECT_EQ(hex.find("DE AD BE EF"), std::string::npos);
    // experiments (4 + 1), three flags, permission, then the radius
    EXPECT_NE(hex.find("00 00 00 00 00 00 00 00 04 00 00 00"), std::string::npos);
    // blockPropertyCount, itemTableCount, correlation id, inventoryFlag 0
    EXPECT_BYTES(ByteBuffer(body.getBytes(body.readableBytes() - 4, 4).value()), "00 00 00 00");
}

TEST_F(StartGamePacketTest, RandomWorldTemplateIdDiffersBetweenEncodingsAndNothingElse) {
    StartGamePacket_526 first;
    StartGamePacket_526 second;
    ByteBuffer a = bodyOf(first);
    ByteBuffer b = bodyOf(second);
    ASSERT_EQ(a.readableBytes(), b.readableBytes());
    // In this layout the world template id is the last field.
    uint32_t idStart = a.readableBytes() - 16;
    EXPECT_EQ(a.getBytes(0, idStart), b.getBytes(0, idStart));
    EXPECT_NE(a.getBytes(idStart, 16), b.getBytes(idStart, 16));
    EXPECT_EQ(server->lines(), (std::vector<std::string>{"Bytes: 3", "Bytes: 3"}));
}

TEST_F(StartGamePacketTest, LayoutsWithoutPropertyDataAreDeterministicAndSilent) {
    StartGamePacket_503 first;
    StartGamePacket_503 second;
    EXPECT_EQ(bodyOf(first), bodyOf(second));
    EXPECT_TRUE(server->lines().empty());
}

TEST(StartGamePacketDeathTest, OldestLayoutWithoutLoadedPaletteIsFatal) {
    EXPECT_DEATH(
        {
            WorldResources::set(WorldResource::requiredBlockStates, std::nullopt);
            StartGamePacket packet;
            bodyOf(packet);
        },
        "");
}

TEST(StartGamePacketDeathTest, PropertyDataWithoutAServerIsFatal) {
    EXPECT_DEATH(
        {
            ServerLink::install(nullptr);
            StartGamePacket_526 packet;
            bodyOf(packet);
        },
        "");
}

}  // namespace
}  // namespace ferrylink::bridge
