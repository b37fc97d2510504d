#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "bridge/packets/client_signal_packets.h"
#include "bridge/packets/disconnect_packet.h"
#include "bridge/packets/move_player_packet.h"
#include "bridge/packets/network_settings_packet.h"
#include "bridge/packets/packet_violation_warning_packet.h"
#include "bridge/packets/play_status_packet.h"
#include "bridge/packets/resource_pack_client_response_packet.h"
#include "bridge/packets/resource_pack_stack_packet.h"
#include "bridge/packets/resource_packs_info_packet.h"
#include "bridge/packets/set_actor_motion_packet.h"
#include "bridge/packets/transfer_packet.h"
#include "packet_bytes.h"
#include "support/hex.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using testing::bodyOf;
using testing::bufferFromHex;
using testing::headerOf;

struct WireCase {
    std::string name;
    std::function<std::unique_ptr<DataPacket>()> make;
    std::string header;
    std::string body;
};

class HandshakePacketBytes : public ::testing::TestWithParam<WireCase> {};

TEST_P(HandshakePacketBytes, HeaderAndBodyMatchTheWireTable) {
    auto packet = GetParam().make();
    EXPECT_BYTES(headerOf(*packet), GetParam().header);
    EXPECT_BYTES(bodyOf(*packet), GetParam().body);
}

INSTANTIATE_TEST_SUITE_P(
    AsTheSessionSendsThem, HandshakePacketBytes,
    ::testing::Values(
        WireCase{"NetworkSettings", [] { return std::make_unique<NetworkSettingsPacket>(); }, "8F 81 00",
                 "01 00 00 00 00 00 00 00 00 00"},
        WireCase{"LoginSuccess",
                 [] { return std::make_unique<PlayStatusPacket>(PlayStatusPacket::Status::LOGIN_SUCCESS); }, "82 00",
                 "00 00 00 00"},
        WireCase{"PlayerSpawn",
                 [] { return std::make_unique<PlayStatusPacket>(PlayStatusPacket::Status::PLAYER_SPAWN); }, "82 00",
                 "00 00 00 03"},
        WireCase{"PacksInfo422", [] { return std::make_unique<ResourcePacksInfoPacket_422>(); }, "86 00",
                 "00 00 00 00 00 00"},
        WireCase{"PacksInfo448", [] { return std::make_unique<ResourcePacksInfoPacket_448>(); }, "86 00",
                 "00 00 00 00 00 00 00"},
        WireCase{"PackStack", [] { return std::make_unique<ResourcePackStackPacket>(); }, "87 00",
                 "00 00 00 00 81 00 2A"},
        WireCase{"PackStack419", [] { return std::make_unique<ResourcePackStackPacket_419>(); }, "87 00",
                 "00 00 00 81 00 2A 00 00 00 00 00"},
        WireCase{"MovePlayer", [] { return std::make_unique<MovePlayerPacket>(); }, "93 00",
                 "81 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        WireCase{"TransferToEightCharacters",
                 [] { return std::make_unique<TransferPacket>("10.0.0.7", 19132); }, "D5 00",
                 "88 00 31 30 2E 30 2E 30 2E 37 BC 4A"},
        WireCase{"DisconnectShown",
                 [] { return std::make_unique<DisconnectPacket>("Invalid IP address", false); }, "85 00",
                 "00 92 00 49 6E 76 61 6C 69 64 20 49 50 20 61 64 64 72 65 73 73"},
        WireCase{"DisconnectHidden", [] { return std::make_unique<DisconnectPacket>("not sent", true); }, "85 00",
                 "01"}),
    [](const auto& info) { return info.param.name; });

TEST(DisconnectPacketTest, MessageOf45BytesHasTheLengthAD00) {
    DisconnectPacket packet(std::string(45, 'm'), false);
    ByteBuffer body = bodyOf(packet);
    EXPECT_BYTES(ByteBuffer(body.getBytes(0, 3).value()), "00 AD 00");
    EXPECT_EQ(body.readableBytes(), 3u + 45u);
}

TEST(TransferPacketTest, AddressOf128BytesHasTheLoneLengthByte80) {
    TransferPacket packet(std::string(128, 'a'), 1);
    ByteBuffer body = bodyOf(packet);
    EXPECT_EQ(body.getInteger<uint8_t>(0), 0x80);
    EXPECT_EQ(body.getInteger<uint8_t>(1), 'a');
    EXPECT_EQ(body.readableBytes(), 1u + 128u + 2u);
}

TEST(TransferPacketTest, PortDefaultsTo19132) { EXPECT_EQ(TransferPacket().port, 19132); }

TEST(SetActorMotionPacketTest, BodyIsIdThenThreeFloats) {
    SetActorMotionPacket packet;
    packet.runtimeEntityId = 1;
    packet.y = 1.0f;
    EXPECT_BYTES(bodyOf(packet), "81 00 00 00 00 00 00 00 80 3F 00 00 00 00");
}

TEST(ClientSignalPacketsTest, IdsAreTheOnesTheSessionActsOn) {
    EXPECT_EQ(RequestNetworkSettingsPacket().NetworkId, 193);
    EXPECT_EQ(SetLocalPlayerAsInitializedPacket().NetworkId, 113);
    EXPECT_FALSE(RequestNetworkSettingsPacket().protocolVersion);
}

ResourcePackClientResponsePacket responseFrom(std::string_view hex) {
    ResourcePackClientResponsePacket packet;
    ByteBuffer body = bufferFromHex(hex);
    packet.decode(body);
    return packet;
}

TEST(ResourcePackClientResponsePacketTest, DecodesStatusAndPackIds) {
    auto haveAll = responseFrom("03 00 00");
    EXPECT_EQ(haveAll.status, ResourcePackClientResponsePacket::Status::HAVE_ALL_PACKS);
    EXPECT_TRUE(haveAll.packIds.empty());

    auto completed = responseFrom("04 02 00 81 00 61 82 00 62 63");
    EXPECT_EQ(completed.status, ResourcePackClientResponsePacket::Status::COMPLETED);
    EXPECT_EQ(completed.packIds, (std::vector<std::string>{"a", "bc"}));
}

TEST(ResourcePackClientResponsePacketTest, UnknownStatusByteBecomesNone) {
    EXPECT_EQ(responseFrom("07 00 00").status, ResourcePackClientResponsePacket::Status::NONE);
    EXPECT_EQ(caseName(ResourcePackClientResponsePacket::Status::HAVE_ALL_PACKS), "HAVE_ALL_PACKS");
}

TEST(PacketViolationWarningPacketTest, TypeIsOffsetByOneAndSeverityIsNot) {
    PacketViolationWarningPacket unknown;
    ByteBuffer first = bufferFromHex("01 84 00 B6 02 83 00 61 62 63");
    unknown.decode(first);
    EXPECT_EQ(unknown.type, PacketViolationWarningPacket::PacketViolationType::UNKNOWN);
    EXPECT_EQ(unknown.severity, PacketViolationWarningPacket::PacketViolationSeverity::FINAL_WARNING);
    EXPECT_EQ(unknown.id, 155);
    EXPECT_EQ(unknown.content, "abc");

    PacketViolationWarningPacket malformed;
    ByteBuffer second = bufferFromHex("00 00 00 00");
    malformed.decode(second);
    EXPECT_EQ(malformed.type, PacketViolationWarningPacket::PacketViolationType::MALFORMED_PACKET);
    EXPECT_EQ(malformed.severity, PacketViolationWarningPacket::PacketViolationSeverity::UNKNOWN);
    EXPECT_EQ(caseName(malformed.type), "MALFORMED_PACKET");
}

TEST(HandshakePacketsDeathTest, PlayStatusWithoutStatusIsFatal) {
    PlayStatusPacket packet;
    EXPECT_DEATH(bodyOf(packet), "");
}

TEST(HandshakePacketsDeathTest, ShortOrOutOfRangeClientPacketsAreFatal) {
    EXPECT_DEATH(responseFrom(""), "");
    EXPECT_DEATH(responseFrom("03 00"), "");
    EXPECT_DEATH(responseFrom("04 01 00 85 00 61"), "");
    EXPECT_DEATH(
        {
            PacketViolationWarningPacket packet;
            ByteBuffer body = bufferFromHex("84 00 00 00 00");  // type 2 + 1
            packet.decode(body);
        },
        "");
    EXPECT_DEATH(
        {
            PacketViolationWarningPacket packet;
            ByteBuffer body = bufferFromHex("00 88 00 00 00");  // severity 4
            packet.decode(body);
        },
        "");
}

}  // namespace
}  // namespace ferrylink::bridge
