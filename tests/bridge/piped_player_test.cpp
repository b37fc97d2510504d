#include "bridge/piped_player.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "bridge/packets/raw_deflate.h"
#include "running_bridge.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::bridge {
namespace {

using Bytes = std::vector<uint8_t>;
using testing::bytesFromHex;
using testing::RunningBridge;

// A console's side of one session, packet by packet, for the edges a whole
// join doesn't visit.
class Session {
public:
    Session(const RunningBridge& bridge, uint8_t raknetVersion)
        : peer_(foundation::SocketAddress::makeResolving("127.0.0.1", bridge.port())) {
        connected = peer_.connect(1400, raknetVersion);
    }
    ~Session() { peer_.sendDisconnect(); }

    // One batch of the given packets, each behind its length.
    void send(const std::vector<Bytes>& packets, bool compressed) {
        Bytes entries;
        for (const auto& packet : packets) {
            entries.push_back(static_cast<uint8_t>(packet.size()));  // all short here
            entries.insert(entries.end(), packet.begin(), packet.end());
        }
        Bytes payload{0xFE};
        Bytes body = compressed ? deflateRaw(entries).value() : entries;
        payload.insert(payload.end(), body.begin(), body.end());
        peer_.sendPayload(payload);
    }

    // The content of the next batch, inflated when `compressed`.
    std::optional<Bytes> receive(bool compressed) {
        auto payload = peer_.nextPayloadWithId(0xFE);
        if (!payload) {
            return std::nullopt;
        }
        Bytes body(payload->begin() + 1, payload->end());
        return compressed ? inflateRaw(body) : std::optional<Bytes>(body);
    }

    bool connected = false;

private:
    testing::RakNetPeer peer_;
};

Bytes requestNetworkSettings() { return bytesFromHex("C1 01 00 00 02 30"); }

std::string hex(const std::optional<Bytes>& bytes) { return bytes ? testing::hexOf(*bytes) : "(nothing)"; }

constexpr const char* settingsEntry = "8D 00 8F 81 00 01 00 00 00 00 00 00 00 00 00";

TEST(PipedPlayerTest, SecondSettingsRequestIsAnsweredCompressed) {
    RunningBridge bridge;
    Session session(bridge, 11);
    ASSERT_TRUE(session.connected);
    session.send({requestNetworkSettings()}, false);
    EXPECT_EQ(hex(session.receive(false)), settingsEntry);
    session.send({requestNetworkSettings()}, true);
    EXPECT_EQ(hex(session.receive(true)), settingsEntry);
    EXPECT_EQ(bridge.printer->count("RequestNetworkSettingsPacket"), 2u);
}

TEST(PipedPlayerTest, OlderRakNetClientIsCompressedFromTheStart) {
    RunningBridge bridge;
    Session session(bridge, 10);
    ASSERT_TRUE(session.connected);
    session.send({requestNetworkSettings()}, true);
    EXPECT_EQ(hex(session.receive(true)), settingsEntry);
}

TEST(PipedPlayerTest, UnknownPacketIsOnlyLogged) {
    RunningBridge bridge;
    Session session(bridge, 10);
    ASSERT_TRUE(session.connected);
    // Two packets in one batch are handled in order.
    session.send({bytesFromHex("09 00"), bytesFromHex("9C 01 00 02 02 83 00 61 62 63")}, true);
    ASSERT_TRUE(bridge.printer->waitFor("Type: MALFORMED_PACKET Serv: WARNING Id: 1 Content: abc"));
    auto lines = bridge.printer->lines();
    auto unknown = std::find(lines.begin(), lines.end(), "Unknown packet 9");
    auto warning = std::find(lines.begin(), lines.end(), "packetId: 156");
    EXPECT_LT(unknown, warning);
}

TEST(PipedPlayerTest, LoginWithoutANameIsToldToDisconnect) {
    RunningBridge bridge;
    Session session(bridge, 10);
    ASSERT_TRUE(session.connected);
    // Header 0x101: only the low eight bits count, so this is a login. The
    // chain is empty, so no name.
    std::string chain = R"({"chain":[]})";
    Bytes login = bytesFromHex("81 02 00 00 02 30");
    login.push_back(static_cast<uint8_t>(4 + chain.size()));
    login.push_back(static_cast<uint8_t>(chain.size()));
    login.insert(login.end(), {0, 0, 0});
    login.insert(login.end(), chain.begin(), chain.end());
    session.send({login}, true);

    std::string message = "disconnectionScreen.internalError.cantConnect";
    auto reply = session.receive(true);
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->size(), 2u + 2u + 1u + 2u + message.size());
    EXPECT_EQ(testing::hexOf(std::span<const uint8_t>(*reply).first(6)), "B2 00 85 00 00 AD");
    EXPECT_TRUE(bridge.printer->waitFor("packetId: 1"));
    EXPECT_TRUE(bridge.printer->waitFor("error in LoginPacket decoding!"));
}

}  // namespace
}  // namespace ferrylink::bridge
