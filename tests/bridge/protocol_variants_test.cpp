#include "bridge/packets/protocol_variants.h"

#include <gtest/gtest.h>

#include <typeinfo>

#include "bridge/packets/resource_pack_stack_packet.h"
#include "bridge/packets/resource_packs_info_packet.h"
#include "bridge/packets/start_game_packet.h"

namespace ferrylink::bridge {
namespace {

template <typename Expected>
bool is(const std::unique_ptr<DataPacket>& packet) {
    return typeid(*packet) == typeid(Expected);
}

TEST(ProtocolVariantsTest, ResourcePackPacketsSwitchAt409And441) {
    EXPECT_TRUE(is<ResourcePackStackPacket>(resourcePackStackFor(408)));
    EXPECT_TRUE(is<ResourcePackStackPacket_419>(resourcePackStackFor(409)));
    EXPECT_TRUE(is<ResourcePacksInfoPacket_422>(resourcePacksInfoFor(408)));
    EXPECT_TRUE(is<ResourcePacksInfoPacket_422>(resourcePacksInfoFor(440)));
    EXPECT_TRUE(is<ResourcePacksInfoPacket_448>(resourcePacksInfoFor(441)));
}

TEST(ProtocolVariantsTest, StartGameLayoutsFollowTheThresholdsNotTheirNames) {
    EXPECT_TRUE(is<StartGamePacket>(startGameFor(408)));
    EXPECT_TRUE(is<StartGamePacket_419>(startGameFor(409)));
    EXPECT_TRUE(is<StartGamePacket_419>(startGameFor(427)));
    EXPECT_TRUE(is<StartGamePacket_428>(startGameFor(428)));
    EXPECT_TRUE(is<StartGamePacket_428>(startGameFor(439)));
    EXPECT_TRUE(is<StartGamePacket_440>(startGameFor(440)));
    EXPECT_TRUE(is<StartGamePacket_440>(startGameFor(441)));
    EXPECT_TRUE(is<StartGamePacket_465>(startGameFor(465)));
    EXPECT_TRUE(is<StartGamePacket_475>(startGameFor(502)));
    EXPECT_TRUE(is<StartGamePacket_503>(startGameFor(503)));
    EXPECT_TRUE(is<StartGamePacket_526>(startGameFor(533)));
    EXPECT_TRUE(is<StartGamePacket_534>(startGameFor(542)));
    EXPECT_TRUE(is<StartGamePacket_544>(startGameFor(543)));
}

TEST(ProtocolVariantsTest, NoProtocolIsRefused) {
    EXPECT_TRUE(is<StartGamePacket_544>(startGameFor(900)));
    EXPECT_TRUE(is<StartGamePacket>(startGameFor(0)));
    EXPECT_TRUE(is<StartGamePacket>(startGameFor(-5)));
    EXPECT_TRUE(is<ResourcePacksInfoPacket_448>(resourcePacksInfoFor(900)));
}

TEST(ProtocolVariantsTest, CreativeContentFrom409On) {
    EXPECT_FALSE(wantsCreativeContent(408));
    EXPECT_TRUE(wantsCreativeContent(409));
}

}  // namespace
}  // namespace ferrylink::bridge
