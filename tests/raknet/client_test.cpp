// The ping client against a real Listener and against a hand-played server.
#include <gtest/gtest.h>

#include "foundation/clock.h"
#include "harness.h"
#include "raknet/client.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::raknet {
namespace {

using foundation::SocketAddress;
using ferrylink::testing::RakNetPeer;
using testing::LoopbackServer;
using testing::RecordingPrinter;

using Bytes = std::vector<uint8_t>;

class ClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        client->printer = printer;
        closeFuture = client->bind("127.0.0.1", 0, group);
        ASSERT_TRUE(closeFuture);
        address = *client->channel->localAddress();
    }
    void TearDown() override {
        client->close();
        group->syncShutdownGracefully();
    }

    size_t pingsUnderWay() {
        return testing::onLoop(client->channel->eventLoop(), [&] { return client->pings.size(); });
    }

    // A pong from `server` to the client, with `advert` as its text.
    static Bytes pong(int64_t clientTime, const std::string& advert) {
        Bytes bytes = ferrylink::testing::bytesFromHex("1C");
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<uint8_t>(static_cast<uint64_t>(clientTime) >> shift));
        }
        auto rest = ferrylink::testing::bytesFromHex(
            "00 00 00 00 00 00 00 09  00 FF FF 00 FE FE FE FE FD FD FD FD 12 34 56 78");
        bytes.insert(bytes.end(), rest.begin(), rest.end());
        bytes.push_back(static_cast<uint8_t>(advert.size() >> 8));
        bytes.push_back(static_cast<uint8_t>(advert.size()));
        bytes.insert(bytes.end(), advert.begin(), advert.end());
        return bytes;
    }

    // A ping as the hand-played server saw it: its clientTime and clientId.
    static std::pair<int64_t, int64_t> readPing(const Bytes& bytes) {
        EXPECT_EQ(bytes.size(), 33u);
        auto at = [&](size_t offset) {
            uint64_t value = 0;
            for (size_t i = 0; i < 8; ++i) {
                value = value << 8 | bytes[offset + i];
            }
            return static_cast<int64_t>(value);
        };
        return {at(1), at(25)};
    }

    std::shared_ptr<foundation::EventLoopGroup> group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    std::shared_ptr<RecordingPrinter> printer = std::make_shared<RecordingPrinter>();
    std::shared_ptr<Client> client = std::make_shared<Client>();
    std::optional<foundation::EventLoopFuture<void>> closeFuture;
    std::optional<SocketAddress> address;
};

TEST_F(ClientTest, PingOfAListenerGivesItsAdvert) {
    LoopbackServer server;
    auto info = client->ping(*server.address).wait();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->motd, "Ferrylink");
    EXPECT_EQ(info->name, "Join me!");
    EXPECT_EQ(info->protocolVersion, 560);
    EXPECT_EQ(info->version, "1.19.50");
    EXPECT_EQ(info->currentPlayers, 0);
    EXPECT_EQ(info->maxPlayers, 99);
    EXPECT_EQ(info->gamemode, "Creative");
    EXPECT_EQ(info->serverId, 1);  // never the advert's own number
    EXPECT_EQ(pingsUnderWay(), 0u);
}

TEST_F(ClientTest, PingCarriesTheClientsIdAndTheTime) {
    RakNetPeer server(*address);
    const int64_t before = foundation::Clock::currentTimeMillis();
    auto future = client->ping(server.localAddress());
    auto ping = server.receiveRaw();
    ASSERT_TRUE(ping);
    auto [clientTime, clientId] = readPing(*ping);
    EXPECT_EQ(clientId, client->id);
    EXPECT_GE(clientTime, before);
    server.sendRaw(pong(clientTime, "MCPE;x;1;v;2;3;4;n;g"));
    EXPECT_EQ(future.wait()->motd, "x");
}

TEST_F(ClientTest, SecondPingOfTheSameAddressSharesTheFirst) {
    RakNetPeer server(*address);
    auto first = client->ping(server.localAddress());
    auto second = client->ping(server.localAddress());
    EXPECT_EQ(pingsUnderWay(), 1u);
    auto ping = server.receiveRaw();
    ASSERT_TRUE(ping);
    server.sendRaw(pong(readPing(*ping).first, "MCPE;shared;1;v;2;3;4;n;g"));
    auto one = first.wait();
    auto other = second.wait();
    EXPECT_EQ(one, other);  // the very same object: one promise behind both
    EXPECT_EQ(one->motd, "shared");
}

TEST_F(ClientTest, SilentServerIsPingedEverySecondAndGivesUpAfterSeven) {
    RakNetPeer server(*address);
    auto future = client->ping(server.localAddress());
    auto first = server.receiveRaw();
    ASSERT_TRUE(first);

    foundation::Clock::advance(Client::PING_RESEND_INTERVAL);
    auto second = server.receiveRaw();
    ASSERT_TRUE(second);
    EXPECT_GE(readPing(*second).first, readPing(*first).first + Client::PING_RESEND_INTERVAL);
    EXPECT_FALSE(future.isComplete());

    foundation::Clock::advance(Client::PING_TIMEOUT - Client::PING_RESEND_INTERVAL);
    try {
        future.wait();
        FAIL() << "a silent server answered";
    } catch (const TimeoutError& error) {
        EXPECT_EQ(error.message, "Ping timeout");
        EXPECT_STREQ(error.what(), "Ping timeout");
    }
    EXPECT_EQ(pingsUnderWay(), 0u);

    // The failed entry is gone: the next ping starts anew.
    while (server.receiveRaw(std::chrono::milliseconds(0))) {
    }
    auto again = client->ping(server.localAddress());
    EXPECT_TRUE(server.receiveRaw());
    EXPECT_FALSE(again.isComplete());
}

TEST_F(ClientTest, PongsFromOthersOtherDatagramsAndWrongMagicAreIgnored) {
    RakNetPeer server(*address);
    RakNetPeer stranger(*address);
    auto future = client->ping(server.localAddress());
    auto ping = server.receiveRaw();
    ASSERT_TRUE(ping);
    stranger.sendRaw(pong(readPing(*ping).first, "MCPE;stranger;1;v;2;3;4;n;g"));
    auto badMagic = pong(1, "MCPE;bad;1;v;2;3;4;n;g");
    badMagic[17 + 15] ^= 0xFF;
    server.sendRaw(badMagic);
    server.sendRaw(Bytes{0x1D, 0x00});
    server.sendRaw(Bytes{});
    server.sendRaw(pong(1, "MCPE;good;1;v;2;3;4;n;g"));
    EXPECT_EQ(future.wait()->motd, "good");
}

}  // namespace
}  // namespace ferrylink::raknet
