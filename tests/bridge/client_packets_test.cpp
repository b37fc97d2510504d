#include <gtest/gtest.h>

#include <string>

#include "bridge/packets/client_signal_packets.h"
#include "bridge/packets/packet_violation_warning_packet.h"
#include "bridge/packets/resource_pack_client_response_packet.h"
#include "support/hex.h"

namespace ferrylink::bridge {
namespace {

using Status = ResourcePackClientResponsePacket::Status;
using testing::bufferFromHex;

struct ResponseCase {
    int32_t protocol;
    std::string_view body;
    Status status;
    std::vector<std::string> packIds;
};

// Bodies behind the header as clients of each layout send them; from v2168
// on the numbers start at REFUSED and the list follows only SEND_PACKS.
TEST(ResourcePackClientResponse, DecodesBothLayouts) {
    const ResponseCase cases[] = {
        {2167, "03 00 00", Status::HAVE_ALL_PACKS, {}},
        {2167, "04 02 00 01 61 02 62 63", Status::COMPLETED, {"a", "bc"}},
        {2167, "07 00 00", Status::NONE, {}},
        {2168, "02 00", Status::HAVE_ALL_PACKS, {}},
        {2168, "03 0C 64 6F 77 6E 6C 6F 61 64 69 6E 67 66", Status::COMPLETED, {}},
        {2168, "01 00 01 01 61", Status::SEND_PACKS, {"a"}},
        {2168, "00 00", Status::REFUSED, {}},
        {2168, "09 00", Status::NONE, {}},
    };
    for (const auto& c : cases) {
        auto body = bufferFromHex(c.body);
        auto response = ResourcePackClientResponsePacket::decode(body, c.protocol);
        ASSERT_TRUE(response) << c.body;
        EXPECT_EQ(response->status, c.status) << c.body;
        EXPECT_EQ(response->packIds, c.packIds) << c.body;
    }
}

TEST(ClientPackets, ReadTheirFields) {
    auto request = bufferFromHex("00 00 02 89");
    EXPECT_EQ(RequestNetworkSettingsPacket::decode(request)->protocolVersion, 649);
    auto initialized = bufferFromHex("01");
    EXPECT_EQ(SetLocalPlayerAsInitializedPacket::decode(initialized)->runtimeEntityId, 1u);
    // The type is one below its case, the severity as it stands.
    auto warning = bufferFromHex("01 04 B6 02 03 61 62 63");
    auto decoded = PacketViolationWarningPacket::decode(warning);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(caseName(decoded->type), "UNKNOWN");
    EXPECT_EQ(caseName(decoded->severity), "FINAL_WARNING");
    EXPECT_EQ(decoded->id, 155);
    EXPECT_EQ(decoded->content, "abc");
}

TEST(ClientPackets, BytesThatMakeNoSenseFailWithAReason) {
    auto failure = [](std::string_view hex, auto decode) {
        auto body = bufferFromHex(hex);
        auto result = decode(body);
        return result ? std::string() : result.error();
    };
    auto response = [](int32_t protocol) {
        return [protocol](foundation::ByteBuffer& body) { return ResourcePackClientResponsePacket::decode(body, protocol); };
    };
    EXPECT_EQ(failure("", response(2167)), "resource pack response cut short");
    EXPECT_EQ(failure("04 01 00 85", response(2167)), "resource pack response cut short");
    EXPECT_EQ(failure("01 00 02 01 61", response(2168)), "resource pack response cut short");
    EXPECT_EQ(failure("00 00 02", RequestNetworkSettingsPacket::decode), "network settings request cut short");
    EXPECT_EQ(failure("", SetLocalPlayerAsInitializedPacket::decode), "player initialisation cut short");
    EXPECT_EQ(failure("01 04 02", PacketViolationWarningPacket::decode), "packet violation warning cut short");
    EXPECT_EQ(failure("02 00 00 00", PacketViolationWarningPacket::decode),
              "packet violation warning of an unknown kind");
}

}  // namespace
}  // namespace ferrylink::bridge
