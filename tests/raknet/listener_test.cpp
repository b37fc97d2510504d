// The offline half of the protocol over loopback: a real Listener on
// 127.0.0.1 (or ::1) port 0, driven by the raw-datagram peer.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>


#include "foundation/clock.h"
#include "harness.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::raknet {
namespace {

using foundation::SocketAddress;
using ferrylink::testing::hexOf;
using ferrylink::testing::RakNetPeer;
using testing::LoopbackServer;

constexpr const char* MAGIC_HEX = "00 FF FF 00 FE FE FE FE FD FD FD FD 12 34 56 78";

std::string hex64(int64_t value) {
    std::vector<uint8_t> bytes;
    for (int shift = 56; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(static_cast<uint64_t>(value) >> shift));
    }
    return hexOf(bytes);
}

std::string hex16(size_t value) { return hexOf(std::vector<uint8_t>{uint8_t(value >> 8), uint8_t(value & 0xFF)}); }

std::string hexText(const std::string& text) {
    return hexOf(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

std::string hexAddress(const SocketAddress& address) { return hexOf(RakNetPeer::encodeAddress(address)); }

std::string hexOfBytes(const std::optional<std::vector<uint8_t>>& bytes) { return bytes ? hexOf(*bytes) : "(nothing)"; }

std::string normalized(std::string_view hex) { return hexOf(ferrylink::testing::bytesFromHex(hex)); }

bool ipv6Loopback() {
    int fd = ::socket(AF_INET6, SOCK_DGRAM, 0);
    if (fd < 0) {
        return false;
    }
    sockaddr_in6 local{};
    local.sin6_family = AF_INET6;
    local.sin6_addr = in6addr_loopback;
    bool usable = ::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) == 0;
    ::close(fd);
    return usable;
}

// --- Discovery ----------------------------------------------------------------------

TEST(ListenerPingTest, PingIsAnsweredWithTheAdvert) {
    LoopbackServer server;
    ASSERT_TRUE(server.bound());
    RakNetPeer peer(*server.address);
    peer.sendUnconnectedPing(1000);

    auto pong = peer.nextOffline(0x1C);
    const int64_t id = server.listener->id;
    const std::string advert = "MCPE;Ferrylink;560;1.19.50;0;99;" + std::to_string(id) + ";Join me!;Creative";
    EXPECT_EQ(hexOfBytes(pong), normalized("1C 00 00 00 00 00 00 03 E8 " + hex64(id) + " " + MAGIC_HEX + " " +
                                           hex16(advert.size()) + " " + hexText(advert)));
    EXPECT_EQ(server.info->serverId, id);
    EXPECT_EQ(server.printer->lines(), (std::vector<std::string>{"Unconnected: 1"}));
    EXPECT_EQ(server.connectionCount(), 0u);
}

TEST(ListenerPingTest, PingFromAConnectedPeerIsAnsweredWithoutTheUnconnectedLine) {
    LoopbackServer server;
    RakNetPeer peer(*server.address);
    peer.sendOpenConnectionRequest1(11, 1000);
    ASSERT_TRUE(peer.nextOffline(0x06));
    peer.sendUnconnectedPing(5);
    ASSERT_TRUE(peer.nextOffline(0x1C));
    EXPECT_EQ(server.printer->count("Unconnected: 1"), 0u);
    EXPECT_EQ(server.printer->count("Unconnected: 5"), 1u);
}

// Nothing but its line for an empty datagram, a stranger's data datagram, a
// ping with a wrong magic and offline requests that can't be read: the one
// answer that comes is to the ping behind them.
TEST(ListenerPingTest, WhatCantBeAnsweredGetsOnlyItsLine) {
    LoopbackServer server;
    RakNetPeer peer(*server.address);
    for (std::string hex : {std::string(), std::string("80 00 00 00"),
                            "01 00 00 00 00 00 00 00 01 " + std::string(MAGIC_HEX, 45) + "00 00 00 00 00 00 00 00 01",
                            std::string("05 ") + MAGIC_HEX, std::string("01 00 00 00"),
                            std::string("07 ") + MAGIC_HEX + " 04 80"}) {
        peer.sendRaw(ferrylink::testing::bytesFromHex(hex));
    }
    peer.sendUnconnectedPing(7);
    auto answer = peer.receiveRaw();
    ASSERT_TRUE(answer);
    EXPECT_EQ((*answer)[0], 0x1C);
    EXPECT_EQ((*answer)[8], 7);
    EXPECT_EQ(server.printer->lines(), (std::vector<std::string>{"Unconnected: 128", "Unconnected: 1", "Unconnected: 5",
                                                                 "Unconnected: 1", "Unconnected: 7", "Unconnected: 1"}));
    EXPECT_EQ(server.connectionCount(), 0u);
}

// --- MTU negotiation -------------------------------------------------------------------

struct MtuCase {
    size_t requestLength;  // of request 1, and the MTU request 2 asks for
    int32_t connectionMtu;
};

class ListenerNegotiationTest : public ::testing::TestWithParam<MtuCase> {};

// Request 1 is answered with its own length and makes nothing yet; request 2
// is answered with the clamp after the header allowance, and the connection
// it makes gets the same.
TEST_P(ListenerNegotiationTest, ReplyOneEchoesTheLengthAndReplyTwoAndTheConnectionGetTheClamp) {
    LoopbackServer server;
    RakNetPeer peer(*server.address);
    const size_t length = GetParam().requestLength;
    const std::string header = std::string(MAGIC_HEX) + " " + hex64(server.listener->id) + " ";
    peer.sendOpenConnectionRequest1(11, length);
    EXPECT_EQ(hexOfBytes(peer.nextOffline(0x06)), normalized("06 " + header + "00 " + hex16(length)));
    EXPECT_EQ(server.connectionCount(), 0u);

    peer.sendOpenConnectionRequest2(static_cast<uint16_t>(length));
    EXPECT_EQ(hexOfBytes(peer.nextOffline(0x08)),
              normalized("08 " + header + hexAddress(peer.localAddress()) + " " +
                         hex16(static_cast<size_t>(GetParam().connectionMtu)) + " 00"));
    auto connection = server.connectionOf(peer.localAddress());
    ASSERT_TRUE(connection);
    EXPECT_EQ(server.onLoop([&] { return connection->mtu(); }), GetParam().connectionMtu);
    EXPECT_EQ(connection->protocolVersion, 11);
    EXPECT_EQ(server.printer->lines(), (std::vector<std::string>{"Unconnected: 5", "RakNet protocol: 11",
                                                                 "OpenConnectionReply1", "OpenConnectionReply2"}));

    // A second request 1 is answered but changes nothing.
    peer.sendOpenConnectionRequest1(11, 600);
    ASSERT_TRUE(peer.nextOffline(0x06));
    EXPECT_EQ(server.onLoop([&] { return connection->mtu(); }), GetParam().connectionMtu);
    EXPECT_EQ(server.connectionOf(peer.localAddress()), connection);
}

INSTANTIATE_TEST_SUITE_P(Lengths, ListenerNegotiationTest,
                         ::testing::Values(MtuCase{1000, 972}, MtuCase{200, 548}, MtuCase{1500, 1372}),
                         [](const auto& info) { return "Of" + std::to_string(info.param.requestLength) + "Bytes"; });

TEST(ListenerRequestTwoTest, WithoutRequestOneItIsAnsweredAndNothingIsTabled) {
    LoopbackServer server;
    RakNetPeer peer(*server.address);
    peer.sendOpenConnectionRequest2(1400);
    ASSERT_TRUE(peer.nextOffline(0x08));
    EXPECT_EQ(server.connectionCount(), 0u);
    EXPECT_EQ(server.printer->lines(), (std::vector<std::string>{"Unconnected: 7", "OpenConnectionReply2"}));
}

TEST(ListenerRequestTwoTest, IPv6PeerGetsFortyBytesLessAndTheLongAddressForm) {
    if (!ipv6Loopback()) {
        GTEST_SKIP() << "no IPv6 loopback here";
    }
    LoopbackServer server("::1");
    ASSERT_TRUE(server.bound());
    RakNetPeer peer(*server.address);
    peer.sendOpenConnectionRequest1(11, 1000);
    ASSERT_TRUE(peer.nextOffline(0x06));
    peer.sendOpenConnectionRequest2(1500);
    auto reply = peer.nextOffline(0x08);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->size(), 1u + 16 + 8 + 29 + 2 + 1);
    EXPECT_EQ(hexOfBytes(reply), normalized(std::string("08 ") + MAGIC_HEX + " " + hex64(server.listener->id) + " " +
                                            hexAddress(peer.localAddress()) + " 05 48 00"));
    auto connection = server.connectionOf(peer.localAddress());
    ASSERT_TRUE(connection);
    EXPECT_EQ(server.onLoop([&] { return connection->mtu(); }), 1352);
}

// --- Protocol versions -------------------------------------------------------------------

TEST(ListenerVersionTest, IncompatiblePeerIsToldElevenAndNothingIsTabled) {
    LoopbackServer server;
    RakNetPeer peer(*server.address);
    peer.sendOpenConnectionRequest1(9, 1000);
    auto reply = peer.nextOffline(0x19);
    EXPECT_EQ(hexOfBytes(reply), normalized(std::string("19 0B ") + MAGIC_HEX + " " + hex64(server.listener->id)));
    EXPECT_EQ(server.printer->lines(), (std::vector<std::string>{"Unconnected: 5", "RakNet protocol: 9",
                                                                 "IncompatibleProtocolVersion"}));
    EXPECT_EQ(server.connectionCount(), 0u);
}

// --- A budget per source ---------------------------------------------------------------

// Past its burst, a source's requests of either kind get no reply and no line
// while another source still connects; one interval later it has one more.
// What was refused is counted in one line a second after the first refusal.
TEST(ListenerBudgetTest, SourceOverItsBudgetIsIgnoredWhileAnotherConnects) {
    LoopbackServer server;
    RakNetPeer flooder(*server.address);
    // Request 1 or 2 by turns; whether it was answered within `wait`.
    auto answered = [&flooder](int64_t turn, std::chrono::milliseconds wait = std::chrono::seconds(5)) {
        const bool second = turn % 2 == 1;
        second ? flooder.sendOpenConnectionRequest2(1400) : flooder.sendOpenConnectionRequest1(11, 1000);
        return flooder.nextOffline(second ? 0x08 : 0x06, wait).has_value();
    };
    const auto briefly = std::chrono::milliseconds(50);
    for (int64_t turn = 0; turn < RequestBudget::BURST; ++turn) {
        ASSERT_TRUE(answered(turn)) << turn;
    }
    EXPECT_FALSE(answered(0, briefly));
    EXPECT_FALSE(answered(1, briefly));
    RakNetPeer console(*server.address);
    EXPECT_TRUE(console.connect());
    EXPECT_EQ(server.printer->count("RakNet protocol: 11"), RequestBudget::BURST / 2 + 1);

    foundation::Clock::advance(RequestBudget::INTERVAL_MILLIS);
    EXPECT_TRUE(answered(0));
    EXPECT_FALSE(answered(1, briefly));
    EXPECT_TRUE(server.printer->waitFor("Ignored connection requests over their limit: 3 from 1 addresses"));
}

// --- Binding -------------------------------------------------------------------------------

TEST(ListenerBindTest, PortInUsePrintsTheErrorAndGivesNothing) {
    int blocker = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(blocker, reinterpret_cast<sockaddr*>(&local), sizeof(local)), 0);
    socklen_t length = sizeof(local);
    ::getsockname(blocker, reinterpret_cast<sockaddr*>(&local), &length);

    auto group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    auto printer = std::make_shared<testing::RecordingPrinter>();
    auto listener = std::make_shared<Listener>();
    listener->printer = printer;
    auto result = listener->bind(nullptr, testing::runAdvert(), "127.0.0.1", ntohs(local.sin_port), group);
    EXPECT_FALSE(result);
    EXPECT_FALSE(listener->channel);
    EXPECT_EQ(printer->lines(), (std::vector<std::string>{"bind: Address already in use (errno: 98)"}));
    listener->close();
    group->syncShutdownGracefully();
    ::close(blocker);
}

TEST(ListenerBindTest, UnresolvableEndpointIsReportedAsUnavailable) {
    auto group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    auto printer = std::make_shared<testing::RecordingPrinter>();
    auto listener = std::make_shared<Listener>();
    listener->printer = printer;
    EXPECT_FALSE(listener->bind(nullptr, testing::runAdvert(), "127.0.0.1", -1, group));
    EXPECT_EQ(printer->lines(), (std::vector<std::string>{"unavaliable: 127.0.0.1 -1"}));
    group->syncShutdownGracefully();
}

}  // namespace
}  // namespace ferrylink::raknet
