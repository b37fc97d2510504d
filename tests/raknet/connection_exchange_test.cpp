// A connection's life over loopback: handshake, payloads both ways,
// acknowledgements, retransmission, reordering, timeout and disconnect.
#include <gtest/gtest.h>

#include <functional>

#include "foundation/clock.h"
#include "harness.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using ferrylink::testing::PeerDatagram;
using ferrylink::testing::PeerFrame;
using ferrylink::testing::RakNetPeer;
using testing::EventKind;
using testing::LoopbackServer;

using Bytes = std::vector<uint8_t>;

class ConnectionExchangeTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server.bound()); }

    // Connects the peer and gives the server's side of the connection.
    std::shared_ptr<Connection> connected() {
        EXPECT_TRUE(peer.connect());
        EXPECT_TRUE(server.events->waitFor(EventKind::open));
        auto opened = server.events->of(EventKind::open);
        return opened.empty() ? nullptr : opened.back().connection;
    }

    // The next data datagram whose frames carry `payload`.
    std::optional<PeerDatagram> datagramCarrying(const Bytes& payload) {
        while (auto datagram = peer.nextDatagram()) {
            for (const auto& frame : datagram->frames) {
                if (frame.payload == payload) {
                    return datagram;
                }
            }
        }
        return std::nullopt;
    }

    std::vector<int32_t> unacknowledged(const std::shared_ptr<Connection>& connection) {
        return server.onLoop([&] {
            std::vector<int32_t> numbers;
            for (const auto& entry : connection->sendDatagrams) {
                numbers.push_back(entry.first);
            }
            return numbers;
        });
    }

    LoopbackServer server;
    RakNetPeer peer{*server.address};
};

TEST_F(ConnectionExchangeTest, HandshakeEndsConnectedWithOneOpening) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->address, peer.localAddress());
    EXPECT_EQ(connection->protocolVersion, 11);
    EXPECT_EQ(server.onLoop([&] { return connection->state; }), State::CONNECTED);
    EXPECT_EQ(server.onLoop([&] { return connection->mtu; }), 1372);
    EXPECT_EQ(peer.serverId(), server.listener->id);
    EXPECT_EQ(server.events->of(EventKind::open).size(), 1u);
    EXPECT_EQ(server.printer->count("packet: 9"), 1u);
    EXPECT_EQ(server.printer->count("packet: 19"), 1u);
    EXPECT_EQ(server.connectionOf(peer.localAddress()), connection);
}

TEST_F(ConnectionExchangeTest, ConnectionRequestAcceptedNamesThePeerAndTheRequestsTime) {
    peer.sendOpenConnectionRequest1(11, 1400);
    ASSERT_TRUE(peer.nextOffline(0x06));
    peer.sendOpenConnectionRequest2(1400);
    ASSERT_TRUE(peer.nextOffline(0x08));
    peer.sendConnectionRequest(0x0102030405);
    auto accepted = peer.nextPayloadWithId(0x10);
    ASSERT_TRUE(accepted);
    ASSERT_EQ(accepted->size(), 166u);
    auto address = RakNetPeer::encodeAddress(peer.localAddress());
    EXPECT_TRUE(std::equal(address.begin(), address.end(), accepted->begin() + 1));
    EXPECT_EQ(Bytes(accepted->begin() + 150, accepted->begin() + 158),
              ferrylink::testing::bytesFromHex("00 00 00 01 02 03 04 05"));
}

TEST_F(ConnectionExchangeTest, NewIncomingConnectionNamingAnotherPortIsDropped) {
    peer.sendOpenConnectionRequest1(11, 1400);
    ASSERT_TRUE(peer.nextOffline(0x06));
    peer.sendOpenConnectionRequest2(1400);
    ASSERT_TRUE(peer.nextOffline(0x08));
    peer.sendConnectionRequest(1);
    ASSERT_TRUE(peer.nextPayloadWithId(0x10));
    const auto serverPort = static_cast<uint16_t>(*server.address->port());
    peer.sendNewIncomingConnection(static_cast<uint16_t>(serverPort + 1));
    // A game payload behind it is printed and dropped: still connecting.
    peer.sendPayload({0xFE, 0x00});
    ASSERT_TRUE(server.printer->waitFor("packet: 254"));
    EXPECT_TRUE(server.events->of(EventKind::open).empty());
    EXPECT_EQ(server.printer->count("con: 254"), 0u);

    peer.sendNewIncomingConnection(serverPort);
    EXPECT_TRUE(server.events->waitFor(EventKind::open));
}

TEST_F(ConnectionExchangeTest, GamePayloadReachesTheListenerWithItsFirstByte) {
    ASSERT_TRUE(connected());
    peer.sendPayload({0xFE, 0x01, 0x02, 0x03});
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated));
    auto up = server.events->of(EventKind::encapsulated);
    EXPECT_EQ(up[0].payload, (Bytes{0xFE, 0x01, 0x02, 0x03}));
    EXPECT_EQ(up[0].readerIndex, 0u);
    EXPECT_EQ(up[0].address, peer.localAddress());
    EXPECT_EQ(server.printer->count("packet: 254"), 1u);
    EXPECT_EQ(server.printer->count("con: 254"), 1u);
}

TEST_F(ConnectionExchangeTest, PayloadsGoingDownArriveInOrder) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    ByteBuffer queued(Bytes{0xFE, 0x01});
    ByteBuffer immediate(Bytes{0xFE, 0x02});
    connection->sendBuffer(queued);
    connection->sendBufferImmediate(immediate);
    auto first = peer.nextPayloadWithId(0xFE);
    auto second = peer.nextPayloadWithId(0xFE);
    ASSERT_TRUE(first && second);
    // The immediate one leaves in its task; the queued one waits for the tick.
    EXPECT_EQ(*first, (Bytes{0xFE, 0x02}));
    EXPECT_EQ(*second, (Bytes{0xFE, 0x01}));
}

TEST_F(ConnectionExchangeTest, QueuedFramesLeaveTogetherAtTheNextTick) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    server.onLoop([&] {
        for (uint8_t i = 1; i <= 2; ++i) {
            EncapsulatedPacket frame;
            frame.reliability = Reliability::RELIABLE_ORDERED;
            frame.buffer = ByteBuffer(Bytes{0xFE, i});
            connection->addToQueue(frame, Priority::NORMAL);
        }
    });
    auto datagram = datagramCarrying({0xFE, 0x01});
    ASSERT_TRUE(datagram);
    ASSERT_EQ(datagram->frames.size(), 2u);
    EXPECT_EQ(datagram->frames[1].payload, (Bytes{0xFE, 0x02}));
}

TEST_F(ConnectionExchangeTest, ServerAcknowledgesWhatCameAndReportsTheGap) {
    ASSERT_TRUE(connected());
    // Past the handshake the peer has used numbers 0 and 1.
    peer.sendFramesAs(2, {peer.frame({0x03})});
    std::vector<uint32_t> acknowledged;
    while (std::find(acknowledged.begin(), acknowledged.end(), 2u) == acknowledged.end()) {
        auto ack = peer.nextAck();
        ASSERT_TRUE(ack);
        auto numbers = ack->numbers();
        acknowledged.insert(acknowledged.end(), numbers.begin(), numbers.end());
    }
    EXPECT_EQ(acknowledged, (std::vector<uint32_t>{0, 1, 2}));

    peer.sendFramesAs(5, {peer.frame({0x03})});
    auto ack = peer.nextAck();
    auto nack = peer.nextNack();
    ASSERT_TRUE(ack && nack);
    EXPECT_EQ(ack->numbers(), (std::vector<uint32_t>{5}));
    EXPECT_EQ(nack->numbers(), (std::vector<uint32_t>{3, 4}));
    EXPECT_EQ(nack->ranges.size(), 1u);

    // Both came from one tick, the ACK first.
    std::vector<uint8_t> order;
    while (auto raw = peer.receiveRaw(std::chrono::milliseconds(0))) {
        if ((*raw)[0] == 0xC0 || (*raw)[0] == 0xA0) {
            order.push_back((*raw)[0]);
        }
    }
    ASSERT_GE(order.size(), 2u);
    EXPECT_EQ(Bytes(order.end() - 2, order.end()), (Bytes{0xC0, 0xA0}));
}

TEST_F(ConnectionExchangeTest, NackedDatagramIsResentUnderANewNumber) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    peer.autoAck = false;
    connection->sendBufferImmediate(ByteBuffer(Bytes{0xFE, 0xAB}));
    auto original = datagramCarrying({0xFE, 0xAB});
    ASSERT_TRUE(original);

    peer.sendNack({{original->sequenceNumber, original->sequenceNumber}});
    auto resent = datagramCarrying({0xFE, 0xAB});
    ASSERT_TRUE(resent);
    EXPECT_GT(resent->sequenceNumber, original->sequenceNumber);
    EXPECT_EQ(resent->frames[0].messageIndex, original->frames[0].messageIndex);
    EXPECT_EQ(resent->frames[0].orderIndex, original->frames[0].orderIndex);

    auto pending = unacknowledged(connection);
    EXPECT_EQ(std::count(pending.begin(), pending.end(), static_cast<int32_t>(original->sequenceNumber)), 0);
    EXPECT_EQ(std::count(pending.begin(), pending.end(), static_cast<int32_t>(resent->sequenceNumber)), 1);

    // Only the new number clears it; the copy is delivered to the peer's side once.
    peer.sendAck({{resent->sequenceNumber, resent->sequenceNumber}});
    peer.sendPayload({0xFE, 0x00});  // a marker behind the ACK
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated));
    pending = unacknowledged(connection);
    EXPECT_EQ(std::count(pending.begin(), pending.end(), static_cast<int32_t>(resent->sequenceNumber)), 0);
}

TEST_F(ConnectionExchangeTest, DatagramLeftUnacknowledgedIsResentAfterTwoSeconds) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    peer.autoAck = false;
    connection->sendBufferImmediate(ByteBuffer(Bytes{0xFE, 0xCD}));
    auto original = datagramCarrying({0xFE, 0xCD});
    ASSERT_TRUE(original);

    foundation::Clock::advance(Connection::RETRANSMISSION_TIMEOUT + 1);
    auto resent = datagramCarrying({0xFE, 0xCD});
    ASSERT_TRUE(resent);
    EXPECT_NE(resent->sequenceNumber, original->sequenceNumber);
    EXPECT_EQ(resent->frames[0].messageIndex, original->frames[0].messageIndex);
}

TEST_F(ConnectionExchangeTest, ReliableFramesOutOfOrderAreDeliveredInOrderAndOnce) {
    ASSERT_TRUE(connected());
    auto first = peer.frame({0xFE, 0x00});
    auto second = peer.frame({0xFE, 0x01});
    auto third = peer.frame({0xFE, 0x02});
    peer.sendFrames({second});
    peer.sendFrames({first});
    peer.sendFrames({first});  // a duplicate, under a number of its own
    peer.sendFrames({third});
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated, 3));
    peer.sendFrames({peer.frame({0xFE, 0x03})});
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated, 4));
    EXPECT_EQ(server.events->payloads(),
              (std::vector<Bytes>{{0xFE, 0x00}, {0xFE, 0x01}, {0xFE, 0x02}, {0xFE, 0x03}}));
}

TEST_F(ConnectionExchangeTest, FragmentsInAnyOrderAreReassembled) {
    ASSERT_TRUE(connected());
    Bytes payload(2500);
    for (size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<uint8_t>(i * 13);
    }
    payload[0] = 0xFE;

    // Reliable fragments, sent 2, 0, 1 and numbered in the order they go out.
    auto pieces = peer.fragments(payload, 1000);
    ASSERT_EQ(pieces.size(), 3u);
    std::vector<PeerFrame> shuffled{pieces[2], pieces[0], pieces[1]};
    uint32_t index = *pieces[0].messageIndex;
    for (auto& piece : shuffled) {
        piece.messageIndex = index++;
        peer.sendFrames({piece});
    }
    // Unreliable ones in yet another order.
    auto loose = peer.fragments(payload, 700, 0);
    ASSERT_EQ(loose.size(), 4u);
    for (size_t i : {3u, 1u, 0u, 2u}) {
        peer.sendFrames({loose[i]});
    }
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated, 2));
    EXPECT_EQ(server.events->payloads(), (std::vector<Bytes>{payload, payload}));
}

TEST_F(ConnectionExchangeTest, SilenceEndsTheConnectionWithTimeout) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    foundation::Clock::advance(Connection::SILENCE_TIMEOUT);
    ASSERT_TRUE(server.events->waitFor(EventKind::close));
    auto closes = server.events->of(EventKind::close);
    EXPECT_EQ(closes[0].reason, "timeout");
    EXPECT_EQ(closes[0].address, peer.localAddress());
    // The one word the peer gets: the disconnect frame.
    EXPECT_TRUE(peer.nextPayloadWithId(0x15));
    EXPECT_TRUE(server.waitForConnections(0));
    EXPECT_TRUE(server.printer->waitFor("Removed: " + peer.localAddress().description()));
}

TEST_F(ConnectionExchangeTest, DisconnectNotificationRemovesTheConnection) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    peer.sendDisconnect();
    ASSERT_TRUE(server.events->waitFor(EventKind::close));
    EXPECT_EQ(server.events->of(EventKind::close)[0].reason, "client disconnect");
    EXPECT_TRUE(peer.nextPayloadWithId(0x15));
    EXPECT_TRUE(server.waitForConnections(0));
    EXPECT_EQ(server.events->of(EventKind::close).size(), 1u);
    // Out of the table, it no longer holds the Listener.
    EXPECT_TRUE(server.onLoop([&] { return connection->listener == nullptr; }));
}

TEST_F(ConnectionExchangeTest, ServerPingsItsPeerEveryTwoSeconds) {
    ASSERT_TRUE(connected());
    foundation::Clock::advance(Connection::PING_INTERVAL + 1);
    auto ping = peer.nextPayloadWithId(0x00);
    ASSERT_TRUE(ping);
    EXPECT_EQ(ping->size(), 9u);
}

TEST_F(ConnectionExchangeTest, ConnectedPingIsAnsweredWithAPong) {
    ASSERT_TRUE(connected());
    peer.sendConnectedPing(0x1234);
    auto pong = peer.nextPayloadWithId(0x03);
    ASSERT_TRUE(pong);
    ASSERT_EQ(pong->size(), 17u);
    EXPECT_EQ(Bytes(pong->begin(), pong->begin() + 9), ferrylink::testing::bytesFromHex("03 00 00 00 00 00 00 12 34"));
}

TEST_F(ConnectionExchangeTest, ClosedListenerLetsGoOfItsConnections) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    server.listener->close();
    ASSERT_TRUE(server.closeFuture);
    server.closeFuture->wait();
    EXPECT_EQ(server.onLoop([&] { return connection->listener == nullptr; }), true);
    EXPECT_EQ(server.connectionCount(), 0u);
    EXPECT_TRUE(server.events->of(EventKind::close).empty());  // no word to the bridge
}

// --- Dropping one peer ------------------------------------------------------------------------

TEST_F(ConnectionExchangeTest, DisconnectEndsThePeerOnceWithItsReasonQuietlyAndSendsNothingAfter) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    connection->disconnect("bad game packet");
    connection->disconnect("told twice");
    EXPECT_TRUE(peer.nextPayloadWithId(0x15));
    ASSERT_TRUE(server.waitForConnections(0));
    auto closes = server.events->of(EventKind::close);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].reason, "bad game packet");
    EXPECT_EQ(closes[0].address, peer.localAddress());
    EXPECT_EQ(server.printer->count("Dropped " + peer.localAddress().description() + ": bad game packet"), 0u);

    connection->sendBufferImmediate(ByteBuffer(Bytes{0xFE, 0x01}));
    server.onLoop([] {});  // the send's task has run
    EXPECT_FALSE(peer.nextPayloadWithId(0xFE, std::chrono::milliseconds(0)));
}

struct GarbageCase {
    const char* name;
    std::function<void(RakNetPeer&)> send;
    const char* reason;
};

class GarbageFromOnePeerTest : public ConnectionExchangeTest, public ::testing::WithParamInterface<GarbageCase> {};

TEST_P(GarbageFromOnePeerTest, DropsThatPeerAloneWithOneLine) {
    ASSERT_TRUE(connected());
    RakNetPeer other(*server.address);
    ASSERT_TRUE(other.connect());
    ASSERT_TRUE(server.events->waitFor(EventKind::open, 2));

    GetParam().send(peer);
    ASSERT_TRUE(server.events->waitFor(EventKind::close));
    auto closes = server.events->of(EventKind::close);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].address, peer.localAddress());
    EXPECT_EQ(closes[0].reason, GetParam().reason);
    std::string line = "Dropped " + peer.localAddress().description() + ": " + GetParam().reason;
    EXPECT_EQ(server.printer->count(line), 1u);
    EXPECT_TRUE(peer.nextPayloadWithId(0x15));
    EXPECT_EQ(server.connectionOf(peer.localAddress()), nullptr);

    other.sendPayload({0xFE, 0x07});
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated));
    EXPECT_EQ(server.events->of(EventKind::encapsulated)[0].address, other.localAddress());
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, GarbageFromOnePeerTest,
    ::testing::Values(
        GarbageCase{"TruncatedFrame",
                    [](RakNetPeer& peer) { peer.sendRaw(ferrylink::testing::bytesFromHex("84 02 00 00 60 00 08 01 00")); },
                    "truncated frame"},
        GarbageCase{"AcknowledgementRunningBackwards",
                    [](RakNetPeer& peer) { peer.sendRaw(RakNetPeer::encodeAcknowledgement({false, {{5, 2}}})); },
                    "acknowledgement range runs backwards"},
        GarbageCase{"EmptyPayload", [](RakNetPeer& peer) { peer.sendFrames({peer.frame({}, 0)}); }, "empty payload"},
        GarbageCase{"TruncatedConnectedPing", [](RakNetPeer& peer) { peer.sendFrames({peer.frame({0x00, 0x01})}); },
                    "truncated ConnectedPing"}),
    [](const auto& info) { return info.param.name; });

TEST(ConnectionExchangeIPv6Test, HandshakeOverIPv6) {
    LoopbackServer server("::1");
    if (!server.bound()) {
        GTEST_SKIP() << "no IPv6 loopback here";
    }
    RakNetPeer peer(*server.address);
    ASSERT_TRUE(peer.connect());
    ASSERT_TRUE(server.events->waitFor(EventKind::open));
    EXPECT_EQ(server.events->of(EventKind::open)[0].address, peer.localAddress());
}

}  // namespace
}  // namespace ferrylink::raknet
