// A connection's life over loopback, as the peer sees it on the wire:
// handshake, payloads both ways, numbering, fragments, acknowledgements,
// resends, reordering, timeout, disconnect and peers dropped.
#include <gtest/gtest.h>

#include <functional>

#include "foundation/clock.h"
#include "harness.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using ferrylink::sim::LinkDatagram;
using ferrylink::sim::LinkFrame;
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
    std::optional<LinkDatagram> datagramCarrying(const Bytes& payload) {
        while (auto datagram = peer.nextDatagram()) {
            for (const auto& frame : datagram->frames) {
                if (frame.payload == payload) {
                    return datagram;
                }
            }
        }
        return std::nullopt;
    }

    LoopbackServer server;
    RakNetPeer peer{*server.address};
};

TEST_F(ConnectionExchangeTest, HandshakeEndsConnectedWithOneOpening) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->address, peer.localAddress());
    EXPECT_EQ(connection->protocolVersion, 11);
    EXPECT_EQ(server.onLoop([&] { return connection->state(); }), State::CONNECTED);
    EXPECT_EQ(server.onLoop([&] { return connection->mtu(); }), 1372);
    EXPECT_EQ(peer.serverId(), server.listener->id);
    EXPECT_EQ(server.events->of(EventKind::open).size(), 1u);
    EXPECT_EQ(server.printer->count("packet: 9"), 1u);
    EXPECT_EQ(server.printer->count("packet: 19"), 1u);
    EXPECT_EQ(server.connectionOf(peer.localAddress()), connection);
}

TEST_F(ConnectionExchangeTest, EachConnectionRequestIsAcceptedNamingThePeerAndTheRequestsTime) {
    peer.sendOpenConnectionRequest1(11, 1400);
    ASSERT_TRUE(peer.nextOffline(0x06));
    peer.sendOpenConnectionRequest2(1400);
    ASSERT_TRUE(peer.nextOffline(0x08));
    for (int64_t time : {0x0102030405, 0x0102030406}) {
        peer.sendConnectionRequest(time);
        auto accepted = peer.nextPayloadWithId(0x10);
        ASSERT_TRUE(accepted);
        ASSERT_EQ(accepted->size(), 166u);
        auto address = RakNetPeer::encodeAddress(peer.localAddress());
        EXPECT_TRUE(std::equal(address.begin(), address.end(), accepted->begin() + 1));
        auto timestamp = ferrylink::testing::bytesFromHex("00 00 00 01 02 03 04");
        timestamp.push_back(static_cast<uint8_t>(time));
        EXPECT_EQ(Bytes(accepted->begin() + 150, accepted->begin() + 158), timestamp);
    }
    EXPECT_EQ(server.printer->count("packet: 9"), 2u);
    EXPECT_TRUE(server.events->of(EventKind::open).empty());
}

TEST_F(ConnectionExchangeTest, BareHandshakePacketsAreAnsweredWithoutAFrameAroundThem) {
    peer.sendOpenConnectionRequest1(11, 1400);
    ASSERT_TRUE(peer.nextOffline(0x06));
    peer.sendOpenConnectionRequest2(1400);
    ASSERT_TRUE(peer.nextOffline(0x08));
    peer.sendRaw(ferrylink::testing::bytesFromHex("09 00 00 00 00 00 00 00 01 00 00 00 00 00 00 30 39 00"));
    // The first thing sent: a datagram of its own numbered 0, one RELIABLE frame.
    auto reply = peer.nextDatagram();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->sequenceNumber, 0u);
    ASSERT_EQ(reply->frames.size(), 1u);
    EXPECT_EQ(reply->frames[0].reliability, 2);
    EXPECT_EQ(reply->frames[0].messageIndex, 0u);
    EXPECT_EQ(reply->frames[0].payload.size(), 166u);
    EXPECT_EQ(server.printer->count("packet: 9"), 0u);

    // The bare NewIncomingConnection must name the peer's own port.
    auto naming = [](uint16_t port) {
        Bytes packet = RakNetPeer::encodeAddress(foundation::SocketAddress::makeResolving("127.0.0.1", port));
        packet.insert(packet.begin(), 0x13);
        packet.resize(packet.size() + 16, 0);
        return packet;
    };
    peer.sendRaw(naming(static_cast<uint16_t>(*server.address->port())));
    peer.sendRaw(naming(peer.localPort()));
    ASSERT_TRUE(server.events->waitFor(EventKind::open));
    EXPECT_EQ(server.events->of(EventKind::open).size(), 1u);
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

TEST_F(ConnectionExchangeTest, TheTwoWaysOfNumberingLeaveGapsAndRepeatsOnTheWire) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    // The accepted reply took number 0 and message index 0. An immediate
    // payload takes the counter's number, then raises it; a queued one raises
    // it first. Message indices: two steps for an immediate frame, one for a
    // queued one.
    struct Expected {
        uint32_t sequenceNumber;
        uint32_t messageIndex;
        uint32_t orderIndex;
    };
    const std::vector<std::pair<bool, Expected>> sends{{true, {1, 2, 0}}, {false, {3, 3, 1}}, {true, {3, 5, 2}}};
    for (uint8_t i = 0; i < sends.size(); ++i) {
        const auto& [immediate, expected] = sends[i];
        ByteBuffer payload(Bytes{0xFE, i});
        immediate ? connection->sendBufferImmediate(payload) : connection->sendBuffer(payload);
        auto datagram = datagramCarrying({0xFE, i});
        ASSERT_TRUE(datagram);
        EXPECT_EQ(datagram->sequenceNumber, expected.sequenceNumber) << int(i);
        EXPECT_EQ(datagram->frames[0].messageIndex, expected.messageIndex) << int(i);
        EXPECT_EQ(datagram->frames[0].orderIndex, expected.orderIndex) << int(i);
    }
}

TEST_F(ConnectionExchangeTest, PayloadsPastTheMtuLeaveAsFragmentsInDatagramsOfTheirOwn) {
    auto connection = connected();
    ASSERT_TRUE(connection);
    // With an MTU of 1372 a frame of 1368 bytes (1358 of payload) fits.
    connection->sendBufferImmediate(ByteBuffer(Bytes(1358, 0xFE)));
    ASSERT_TRUE(datagramCarrying(Bytes(1358, 0xFE)));

    Bytes payload(3000);
    for (size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<uint8_t>(i ^ (i >> 8));
    }
    payload[0] = 0xFE;
    connection->sendBuffer(ByteBuffer(payload));
    const size_t sizes[] = {1338, 1338, 324};
    std::optional<uint32_t> firstIndex;
    for (int32_t index = 0; index < 3; ++index) {
        auto datagram = peer.nextDatagram();
        while (datagram && !datagram->frames.at(0).split) {
            datagram = peer.nextDatagram();
        }
        ASSERT_TRUE(datagram);
        ASSERT_EQ(datagram->frames.size(), 1u);
        const auto& fragment = datagram->frames[0];
        EXPECT_TRUE(fragment.split);
        EXPECT_EQ(fragment.splitCount, 3);
        EXPECT_EQ(fragment.splitId, 1);
        EXPECT_EQ(fragment.splitIndex, index);
        EXPECT_EQ(fragment.orderIndex, 1u);
        EXPECT_EQ(fragment.payload.size(), sizes[index]);
        // Each fragment takes two message indices.
        firstIndex = firstIndex.value_or(*fragment.messageIndex);
        EXPECT_EQ(*fragment.messageIndex, *firstIndex + 2 * static_cast<uint32_t>(index));
    }
    std::optional<Bytes> reassembled;
    while ((reassembled = peer.nextPayloadWithId(0xFE)) && reassembled->size() != payload.size()) {
    }
    EXPECT_EQ(reassembled, payload);
}

TEST(ConnectionExchangeSmallMtuTest, QueuedFramesShareADatagramUntilTheMtuIsReached) {
    LoopbackServer server;
    RakNetPeer peer(*server.address);
    ASSERT_TRUE(peer.connect(576));
    ASSERT_TRUE(server.events->waitFor(EventKind::open));
    auto connection = server.events->of(EventKind::open)[0].connection;
    ASSERT_EQ(server.onLoop([&] { return connection->mtu(); }), 548);
    // Queued in one go: 4 + 210 + 210 = 424 bytes fit 548, a third frame doesn't.
    server.onLoop([&] {
        for (uint8_t i = 0; i < 3; ++i) {
            Bytes payload(200, i);
            payload[0] = 0xFE;
            connection->sendBuffer(ByteBuffer(payload));
        }
    });
    std::vector<size_t> frames;
    while (frames.size() < 2) {
        auto datagram = peer.nextDatagram();
        ASSERT_TRUE(datagram);
        if (datagram->frames.at(0).payload.size() == 200) {
            frames.push_back(datagram->frames.size());
        }
    }
    EXPECT_EQ(frames, (std::vector<size_t>{2, 1}));
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

    // Reliable fragments, sent 2, 0, 1 and numbered in the order they go out:
    // through the reliable window to the assembler, whose own rules are tested
    // on their own.
    auto pieces = peer.fragments(payload, 1000);
    ASSERT_EQ(pieces.size(), 3u);
    std::vector<LinkFrame> shuffled{pieces[2], pieces[0], pieces[1]};
    uint32_t index = *pieces[0].messageIndex;
    for (auto& piece : shuffled) {
        piece.messageIndex = index++;
        peer.sendFrames({piece});
    }
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated));
    EXPECT_EQ(server.events->payloads(), (std::vector<Bytes>{payload}));
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
    EXPECT_FALSE(server.onLoop([&] { return connection->attached(); }));
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
    EXPECT_FALSE(server.onLoop([&] { return connection->attached(); }));
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
