// The Connection on its own, fed datagrams by hand: no socket, so what it
// sends is read from its tables of sent and queued datagrams.
#include <gtest/gtest.h>

#include <algorithm>

#include "foundation/byte_buffer.h"
#include "foundation/clock.h"
#include "harness.h"
#include "raknet/connection.h"
#include "raknet/listener.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using foundation::SocketAddress;
using ferrylink::testing::PeerDatagram;
using ferrylink::testing::PeerFrame;
using ferrylink::testing::RakNetPeer;
using testing::EventKind;
using testing::RecordingConnectionListener;
using testing::RecordingPrinter;

PeerFrame unreliable(std::vector<uint8_t> payload) {
    PeerFrame frame;
    frame.reliability = 0;
    frame.payload = std::move(payload);
    return frame;
}

PeerFrame reliable(uint32_t messageIndex, std::vector<uint8_t> payload) {
    PeerFrame frame;
    frame.reliability = 2;
    frame.messageIndex = messageIndex;
    frame.payload = std::move(payload);
    return frame;
}

ByteBuffer datagram(uint32_t sequenceNumber, std::vector<PeerFrame> frames) {
    PeerDatagram made;
    made.sequenceNumber = sequenceNumber;
    made.frames = std::move(frames);
    return ByteBuffer(RakNetPeer::encodeDatagram(made));
}

ByteBuffer acknowledgement(bool negative, std::vector<std::pair<uint32_t, uint32_t>> ranges) {
    return ByteBuffer(RakNetPeer::encodeAcknowledgement({negative, std::move(ranges)}));
}

// What went out as datagram `number`, parsed back from its own encoding.
PeerDatagram sent(const Connection& connection, int32_t number) {
    auto found = connection.sendDatagrams.find(number);
    EXPECT_NE(found, connection.sendDatagrams.end()) << "no datagram " << number;
    if (found == connection.sendDatagrams.end()) {
        return {};
    }
    ByteBuffer bytes;
    found->second.encode(bytes);
    auto view = bytes.readableView();
    return *RakNetPeer::parseDatagram(view);
}

std::vector<int32_t> sentNumbers(const Connection& connection) {
    std::vector<int32_t> numbers;
    for (const auto& entry : connection.sendDatagrams) {
        numbers.push_back(entry.first);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::vector<uint8_t> bytes(size_t count, uint8_t first = 0xFE) {
    std::vector<uint8_t> made(count);
    for (size_t i = 0; i < count; ++i) {
        made[i] = static_cast<uint8_t>(i * 7 + 3);
    }
    if (count > 0) {
        made[0] = first;
    }
    return made;
}

class ConnectionTest : public ::testing::Test {
protected:
    ConnectionTest() {
        listener->printer = printer;
        listener->connectionListener = events;
    }

    // The recorder holds the connection, which holds the Listener, which
    // holds the recorder: let go as the Listener would at removal.
    ~ConnectionTest() override { connection->detachFromListener(); }

    void connect() { connection->state = State::CONNECTED; }
    std::vector<std::vector<uint8_t>> delivered() const { return events->payloads(); }

    std::shared_ptr<RecordingPrinter> printer = std::make_shared<RecordingPrinter>();
    std::shared_ptr<RecordingConnectionListener> events = std::make_shared<RecordingConnectionListener>();
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    SocketAddress peer = SocketAddress::makeResolving("127.0.0.1", 50000);
    std::shared_ptr<Connection> connection = std::make_shared<Connection>(listener, 1372, peer, 11);
};

// --- The sequence window ----------------------------------------------------------

TEST_F(ConnectionTest, FirstDatagramZeroOpensTheWindow) {
    connection->receive(datagram(0, {unreliable({0x03})}));
    EXPECT_EQ(connection->windowStart, 0);
    EXPECT_EQ(connection->windowEnd, 2049);
    EXPECT_EQ(connection->ackQueue, (std::vector<uint32_t>{0}));
    EXPECT_TRUE(connection->nackQueue.empty());
    EXPECT_EQ(connection->recievedWindow, (std::vector<int32_t>{0}));
}

TEST_F(ConnectionTest, GapIsReportedAndTheOvertakenDatagramIsDropped) {
    connection->receive(datagram(3, {unreliable({0x03})}));
    EXPECT_EQ(connection->nackQueue, (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(connection->windowStart, 3);

    connection->receive(datagram(1, {unreliable({0x03})}));
    EXPECT_EQ(connection->ackQueue, (std::vector<uint32_t>{3}));
    EXPECT_EQ(connection->nackQueue, (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(printer->count("packet: 3"), 1u);
}

TEST_F(ConnectionTest, NumberBeyondTheWindowIsDroppedButCountsAsLife) {
    connection->lastUpdate = 0;
    connection->receive(datagram(2049, {unreliable({0x03})}));
    EXPECT_TRUE(connection->ackQueue.empty());
    EXPECT_TRUE(connection->nackQueue.empty());
    EXPECT_TRUE(printer->lines().empty());
    EXPECT_GT(connection->lastUpdate, 0);
}

TEST_F(ConnectionTest, DuplicateNumberIsAcknowledgedOnce) {
    connection->receive(datagram(0, {unreliable({0x03})}));
    connection->receive(datagram(1, {unreliable({0x03})}));
    connection->receive(datagram(1, {unreliable({0x03})}));
    EXPECT_EQ(connection->ackQueue, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(printer->count("packet: 3"), 2u);
}

TEST_F(ConnectionTest, LateArrivalInsideTheGapLeavesTheNackQueue) {
    connection->receive(datagram(0, {unreliable({0x03})}));
    connection->receive(datagram(2, {unreliable({0x03})}));
    EXPECT_EQ(connection->nackQueue, (std::vector<uint32_t>{1}));
    // Number 2 again is a duplicate; number 1 lies under the window now and stays reported.
    connection->receive(datagram(1, {unreliable({0x03})}));
    EXPECT_EQ(connection->nackQueue, (std::vector<uint32_t>{1}));
}

// --- The reliable window -------------------------------------------------------------

TEST_F(ConnectionTest, ReliableFrameAheadOfItsTurnWaits) {
    connect();
    connection->receive(datagram(0, {reliable(5, {0xF5})}));
    EXPECT_TRUE(delivered().empty());
    EXPECT_EQ(connection->reliableWindow.count(5), 1u);

    for (uint32_t i = 0; i < 5; ++i) {
        connection->receive(datagram(i + 1, {reliable(i, {static_cast<uint8_t>(0xF0 + i)})}));
    }
    EXPECT_EQ(delivered(), (std::vector<std::vector<uint8_t>>{{0xF0}, {0xF1}, {0xF2}, {0xF3}, {0xF4}, {0xF5}}));
    EXPECT_TRUE(connection->reliableWindow.empty());
    EXPECT_EQ(connection->lastReliableIndex, 5);
}

TEST_F(ConnectionTest, SameMessageIndexInTwoDatagramsIsDeliveredOnce) {
    connect();
    connection->receive(datagram(0, {reliable(0, {0xF0})}));
    connection->receive(datagram(1, {reliable(0, {0xF0})}));
    EXPECT_EQ(delivered().size(), 1u);
}

TEST_F(ConnectionTest, UnreliableFrameOvertakesWaitingReliableOnes) {
    connect();
    connection->receive(datagram(0, {reliable(1, {0xF1}), unreliable({0xE0})}));
    EXPECT_EQ(delivered(), (std::vector<std::vector<uint8_t>>{{0xE0}}));
    connection->receive(datagram(1, {reliable(0, {0xF0})}));
    EXPECT_EQ(delivered(), (std::vector<std::vector<uint8_t>>{{0xE0}, {0xF0}, {0xF1}}));
}

TEST_F(ConnectionTest, FramesBehindAGapNeverComeTwiceOrOutOfOrder) {
    // Several frames wait; the walk follows the table's own order and may
    // stop early, but what it delivers is always the next in line.
    connect();
    connection->receive(datagram(0, {reliable(3, {0xF3}), reliable(2, {0xF2}), reliable(1, {0xF1})}));
    connection->receive(datagram(1, {reliable(0, {0xF0})}));
    connection->receive(datagram(2, {reliable(4, {0xF4})}));
    auto got = delivered();
    std::vector<std::vector<uint8_t>> inLine{{0xF0}, {0xF1}, {0xF2}, {0xF3}, {0xF4}};
    ASSERT_FALSE(got.empty());
    ASSERT_LE(got.size(), inLine.size());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), inLine.begin()));
    EXPECT_EQ(connection->lastReliableIndex + 1, static_cast<int32_t>(got.size()));
}

// --- Reassembly ------------------------------------------------------------------------

TEST_F(ConnectionTest, FragmentsInAnyOrderGiveTheSamePayload) {
    connect();
    auto payload = bytes(250);
    std::vector<PeerFrame> pieces;
    for (int32_t index = 0; index < 3; ++index) {
        PeerFrame piece = unreliable({payload.begin() + index * 100,
                                      payload.begin() + std::min<int32_t>(250, (index + 1) * 100)});
        piece.split = true;
        piece.splitCount = 3;
        piece.splitId = 9;
        piece.splitIndex = index;
        pieces.push_back(piece);
    }
    connection->receive(datagram(0, {pieces[2]}));
    connection->receive(datagram(1, {pieces[0]}));
    EXPECT_TRUE(delivered().empty());
    connection->receive(datagram(2, {pieces[1]}));
    EXPECT_EQ(delivered(), (std::vector<std::vector<uint8_t>>{payload}));
    EXPECT_TRUE(connection->splitPacket.empty());
}

TEST_F(ConnectionTest, RepeatedSplitIndexReplacesTheEarlierFragment) {
    connect();
    auto piece = [](int32_t index, std::vector<uint8_t> payload) {
        PeerFrame made = unreliable(std::move(payload));
        made.split = true;
        made.splitCount = 3;
        made.splitId = 1;
        made.splitIndex = index;
        return made;
    };
    connection->receive(datagram(0, {piece(0, {0xFE, 0xAA}), piece(0, {0xFE, 0xBB}), piece(1, {0x01})}));
    EXPECT_TRUE(delivered().empty());  // one short of complete
    connection->receive(datagram(1, {piece(2, {0x02})}));
    EXPECT_EQ(delivered(), (std::vector<std::vector<uint8_t>>{{0xFE, 0xBB, 0x01, 0x02}}));
}

// --- Acknowledgements of what we sent ----------------------------------------------------

TEST_F(ConnectionTest, NackResendsUnderANewNumberAndOnlyThatNumberClearsIt) {
    connection->sendPing(1);  // IMMEDIATE: number 0
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0}));
    auto original = sent(*connection, 0);

    connection->receive(acknowledgement(true, {{0, 0}}));
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{2}));  // sendQueue raises first
    auto resent = sent(*connection, 2);
    ASSERT_EQ(resent.frames.size(), 1u);
    EXPECT_EQ(resent.frames[0].messageIndex, original.frames[0].messageIndex);
    EXPECT_EQ(resent.frames[0].payload, original.frames[0].payload);
    EXPECT_TRUE(connection->outgoingPacket.packets.empty());

    connection->receive(acknowledgement(false, {{0, 1}}));
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{2}));
    connection->receive(acknowledgement(false, {{2, 2}}));
    EXPECT_TRUE(connection->sendDatagrams.empty());
}

TEST_F(ConnectionTest, NackKeepsTheDatagramBeingFilled) {
    connection->sendPing(1);
    EncapsulatedPacket queued;
    queued.reliability = Reliability::UNRELIABLE;
    queued.buffer = ByteBuffer(std::vector<uint8_t>{0x42});
    connection->addEncapsulatedToQueue(queued, Priority::NORMAL);
    connection->receive(acknowledgement(true, {{0, 0}}));
    ASSERT_EQ(connection->outgoingPacket.packets.size(), 1u);
    EXPECT_BYTES(*connection->outgoingPacket.packets[0].buffer, "42");
}

TEST_F(ConnectionTest, AcknowledgementsDontCountAsLife) {
    connection->lastUpdate = 0;
    connection->receive(acknowledgement(false, {{5, 5}}));
    connection->receive(acknowledgement(true, {{5, 5}}));
    EXPECT_EQ(connection->lastUpdate, 0);
}

// --- Dispatch and the connected handshake ---------------------------------------------------

TEST_F(ConnectionTest, BareConnectionRequestIsAnsweredInADatagramOfItsOwn) {
    auto request = ferrylink::testing::bufferFromHex("09 00 00 00 00 00 00 00 01 00 00 00 00 00 00 30 39 00");
    connection->receive(request);
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0}));
    auto reply = sent(*connection, 0);
    ASSERT_EQ(reply.frames.size(), 1u);
    EXPECT_EQ(reply.frames[0].reliability, 2);
    EXPECT_EQ(reply.frames[0].messageIndex, 0u);
    ASSERT_EQ(reply.frames[0].payload.size(), 166u);
    EXPECT_EQ(reply.frames[0].payload[0], 0x10);
    EXPECT_EQ(connection->state, State::CONNECTING);
    EXPECT_TRUE(printer->lines().empty());  // no "packet: " line on the bare path
}

TEST_F(ConnectionTest, BareNewIncomingConnectionIsCheckedAgainstThePeersOwnPort) {
    auto naming = [](uint16_t port) {
        auto address = RakNetPeer::encodeAddress(SocketAddress::makeResolving("127.0.0.1", port));
        std::vector<uint8_t> packet{0x13};
        packet.insert(packet.end(), address.begin(), address.end());
        packet.resize(packet.size() + 16, 0);
        return ByteBuffer(packet);
    };
    connection->receive(naming(19132));
    EXPECT_EQ(connection->state, State::CONNECTING);
    connection->receive(naming(50000));
    EXPECT_EQ(connection->state, State::CONNECTED);
    ASSERT_EQ(events->of(EventKind::open).size(), 1u);
    EXPECT_EQ(events->of(EventKind::open)[0].connection, connection);
}

TEST_F(ConnectionTest, RepeatedConnectionRequestGetsASecondAnswer) {
    std::vector<uint8_t> request =
        ferrylink::testing::bytesFromHex("09 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 05");
    connection->receive(datagram(0, {reliable(0, request)}));
    connection->receive(datagram(1, {reliable(1, request)}));
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(connection->state, State::CONNECTING);
    EXPECT_EQ(printer->count("packet: 9"), 2u);
}

TEST_F(ConnectionTest, FramedNewIncomingConnectionNeedsTheChannelsPort) {
    // This Listener has no channel, so there is no local port to match.
    auto address = RakNetPeer::encodeAddress(SocketAddress::makeResolving("127.0.0.1", 50000));
    std::vector<uint8_t> packet{0x13};
    packet.insert(packet.end(), address.begin(), address.end());
    packet.resize(packet.size() + 16, 0);
    connection->receive(datagram(0, {reliable(0, packet)}));
    EXPECT_EQ(connection->state, State::CONNECTING);
    EXPECT_TRUE(events->of(EventKind::open).empty());
}

TEST_F(ConnectionTest, ConnectedPingIsAnsweredOnlyOnceConnected) {
    std::vector<uint8_t> ping = ferrylink::testing::bytesFromHex("00 00 00 00 00 00 00 00 07");
    connection->lastUpdate = 0;
    connection->receive(datagram(0, {reliable(0, ping)}));
    EXPECT_TRUE(connection->sendDatagrams.empty());
    EXPECT_GT(connection->lastUpdate, 0);

    connect();
    connection->receive(datagram(1, {reliable(1, ping)}));
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0}));
    auto pong = sent(*connection, 0).frames.at(0).payload;
    ASSERT_EQ(pong.size(), 17u);
    EXPECT_EQ(std::vector<uint8_t>(pong.begin(), pong.begin() + 9),
              ferrylink::testing::bytesFromHex("03 00 00 00 00 00 00 00 07"));
}

TEST_F(ConnectionTest, DisconnectNotificationCountsOnlyOnceConnected) {
    connection->receive(datagram(0, {reliable(0, {0x15})}));
    EXPECT_TRUE(events->of(EventKind::close).empty());
    connect();
    connection->receive(datagram(1, {reliable(1, {0x15})}));
    auto closes = events->of(EventKind::close);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].reason, "client disconnect");
    EXPECT_EQ(closes[0].address, peer);
}

TEST_F(ConnectionTest, GamePayloadGoesUpOnlyWhenConnectedWithItsIdByte) {
    connection->receive(datagram(0, {reliable(0, {0xFE, 0x01, 0x02})}));
    EXPECT_TRUE(delivered().empty());
    EXPECT_EQ(printer->lines(), (std::vector<std::string>{"packet: 254"}));

    connect();
    connection->receive(datagram(1, {reliable(1, {0xFE, 0x03, 0x04})}));
    EXPECT_EQ(printer->lines(), (std::vector<std::string>{"packet: 254", "packet: 254", "con: 254"}));
    auto up = events->of(EventKind::encapsulated);
    ASSERT_EQ(up.size(), 1u);
    EXPECT_EQ(up[0].readerIndex, 0u);
    EXPECT_EQ(up[0].payload, (std::vector<uint8_t>{0xFE, 0x03, 0x04}));
    EXPECT_EQ(up[0].address, peer);
}

TEST_F(ConnectionTest, BareControlBytesAreIgnoredOnceConnected) {
    connect();
    connection->receive(ferrylink::testing::bufferFromHex("09 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 05"));
    EXPECT_TRUE(connection->sendDatagrams.empty());
}

using ConnectionDeathTest = ConnectionTest;

TEST_F(ConnectionDeathTest, BareNewIncomingConnectionWithoutListenerEndsTheProcess) {
    listener->connectionListener.reset();
    auto address = RakNetPeer::encodeAddress(peer);
    std::vector<uint8_t> packet{0x13};
    packet.insert(packet.end(), address.begin(), address.end());
    packet.resize(packet.size() + 16, 0);
    EXPECT_DEATH(connection->receive(ByteBuffer(packet)), "");
}


// --- The send path ---------------------------------------------------------------------

TEST_F(ConnectionTest, FrameOfSize1368FitsAnMtuOf1372AndOneMoreIsSplit) {
    EncapsulatedPacket whole;
    whole.reliability = Reliability::RELIABLE_ORDERED;
    whole.buffer = ByteBuffer(bytes(1358));
    ASSERT_EQ(whole.size(), 1368);
    connection->addToQueue(whole, Priority::NORMAL);
    EXPECT_EQ(connection->outgoingPacket.packets.size(), 1u);
    EXPECT_TRUE(connection->sendDatagrams.empty());

    EncapsulatedPacket bigger = whole;
    bigger.buffer = ByteBuffer(bytes(1359));
    connection->addToQueue(bigger, Priority::NORMAL);
    EXPECT_EQ(connection->sendDatagrams.size(), 2u);
}

TEST_F(ConnectionTest, ThreeThousandBytesLeaveAsThreeFragmentsInDatagramsOfTheirOwn) {
    auto payload = bytes(3000);
    connection->sendSequenceNumber = 0;
    EncapsulatedPacket frame;
    frame.reliability = Reliability::RELIABLE_ORDERED;
    frame.buffer = ByteBuffer(payload);
    connection->addToQueue(frame, Priority::NORMAL);  // the priority asked for doesn't matter

    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0, 1, 2}));
    std::vector<uint8_t> joined;
    const size_t sizes[] = {1338, 1338, 324};
    for (int32_t number = 0; number < 3; ++number) {
        auto datagram = sent(*connection, number);
        ASSERT_EQ(datagram.frames.size(), 1u);
        const auto& fragment = datagram.frames[0];
        EXPECT_TRUE(fragment.split);
        EXPECT_EQ(fragment.splitCount, 3);
        EXPECT_EQ(fragment.splitId, 1);
        EXPECT_EQ(fragment.splitIndex, number);
        EXPECT_EQ(fragment.orderIndex, 0u);
        EXPECT_EQ(fragment.reliability, 3);
        // The parent spent 0; each fragment takes two steps.
        EXPECT_EQ(fragment.messageIndex, static_cast<uint32_t>(2 * number + 2));
        EXPECT_EQ(fragment.payload.size(), sizes[number]);
        joined.insert(joined.end(), fragment.payload.begin(), fragment.payload.end());
    }
    EXPECT_EQ(joined, payload);
    EXPECT_TRUE(connection->outgoingPacket.packets.empty());
}

TEST_F(ConnectionTest, SplitIdsCountFromOne) {
    EncapsulatedPacket frame;
    frame.reliability = Reliability::RELIABLE_ORDERED;
    frame.buffer = ByteBuffer(bytes(2000));
    connection->addToQueue(frame, Priority::IMMEDIATE);
    connection->addToQueue(frame, Priority::IMMEDIATE);
    EXPECT_EQ(sent(*connection, 0).frames[0].splitId, 1);
    EXPECT_EQ(sent(*connection, 2).frames[0].splitId, 2);
    EXPECT_EQ(sent(*connection, 2).frames[0].orderIndex, 1u);
}

TEST_F(ConnectionTest, TheTwoWaysOfNumberingLeaveGapsAndRepeats) {
    auto frameOf = [](uint8_t byte) {
        EncapsulatedPacket frame;
        frame.reliability = Reliability::RELIABLE_ORDERED;
        frame.buffer = ByteBuffer(std::vector<uint8_t>{0xFE, byte});
        return frame;
    };
    connection->addToQueue(frameOf(1), Priority::IMMEDIATE);  // uses 0, counter 1
    connection->addToQueue(frameOf(2), Priority::NORMAL);
    connection->sendQueue();  // raises to 2, uses 2: number 1 is never seen
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0, 2}));
    connection->addToQueue(frameOf(3), Priority::IMMEDIATE);  // uses 2 again and replaces it
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0, 2}));
    EXPECT_EQ(sent(*connection, 2).frames[0].payload, (std::vector<uint8_t>{0xFE, 3}));

    // messageIndex: two steps for an immediate frame, one for a queued one.
    EXPECT_EQ(sent(*connection, 0).frames[0].messageIndex, 1u);
    EXPECT_EQ(sent(*connection, 2).frames[0].messageIndex, 4u);
    EXPECT_EQ(sent(*connection, 0).frames[0].orderIndex, 0u);
    EXPECT_EQ(sent(*connection, 2).frames[0].orderIndex, 2u);
}

TEST_F(ConnectionTest, QueuedFramesShareADatagramUntilTheMtuIsReached) {
    connection->mtu = 548;
    for (int i = 0; i < 3; ++i) {
        EncapsulatedPacket frame;
        frame.reliability = Reliability::RELIABLE_ORDERED;
        frame.buffer = ByteBuffer(bytes(200));
        connection->addToQueue(frame, Priority::NORMAL);
    }
    // 4 + 210 + 210 = 424 fits; a third frame would make 634.
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{1}));
    EXPECT_EQ(sent(*connection, 1).frames.size(), 2u);
    EXPECT_EQ(connection->outgoingPacket.packets.size(), 1u);
}

TEST_F(ConnectionTest, CloseSendsTheOneDisconnectFrame) {
    connect();
    connection->close();
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0}));
    ByteBuffer wire;
    connection->sendDatagrams.at(0).encode(wire);
    EXPECT_BYTES(wire, "80 00 00 00 00 00 08 15");
    EXPECT_EQ(connection->state, State::CONNECTED);
}

// --- The tick -----------------------------------------------------------------------------

TEST_F(ConnectionTest, SilenceOf4000MillisecondsEndsTheConnection) {
    const int64_t start = connection->lastUpdate;
    connection->update(start + 3999);
    EXPECT_TRUE(events->of(EventKind::close).empty());
    connection->update(start + 4000);
    auto closes = events->of(EventKind::close);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].reason, "timeout");
}

TEST_F(ConnectionTest, OwnPingLeavesOnceTwoSecondsHavePassed) {
    const int64_t start = connection->lastPing;
    connection->update(start + 2000);
    EXPECT_TRUE(connection->sendDatagrams.empty());
    connection->update(start + 2001);
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0}));
    auto ping = sent(*connection, 0).frames.at(0);
    EXPECT_EQ(ping.reliability, 2);
    ASSERT_EQ(ping.payload.size(), 9u);
    EXPECT_EQ(ping.payload[0], 0x00);
    EXPECT_EQ(connection->lastPing, start + 2001);
}

TEST_F(ConnectionTest, TickEmptiesTheAcknowledgementQueuesAndFlushesTheQueue) {
    connection->receive(datagram(0, {unreliable({0x03})}));
    connection->receive(datagram(2, {unreliable({0x03})}));
    EncapsulatedPacket frame;
    frame.reliability = Reliability::UNRELIABLE;
    frame.buffer = ByteBuffer(std::vector<uint8_t>{0x42});
    connection->addEncapsulatedToQueue(frame, Priority::NORMAL);
    connection->update(connection->lastUpdate);
    EXPECT_TRUE(connection->ackQueue.empty());
    EXPECT_TRUE(connection->nackQueue.empty());
    EXPECT_TRUE(connection->outgoingPacket.packets.empty());
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{1}));
}

TEST_F(ConnectionTest, DatagramUnacknowledgedForMoreThanTwoSecondsIsResent) {
    connection->sendPing(connection->lastPing);
    auto& original = connection->sendDatagrams.at(0);
    const int64_t now = foundation::Clock::currentTimeMillis();
    original.sendTime = now - 2000;  // not yet: the rule is "more than"
    connection->update(connection->lastUpdate);
    EXPECT_EQ(sentNumbers(*connection), (std::vector<int32_t>{0}));

    connection->sendDatagrams.at(0).sendTime = now - 2001;
    connection->update(connection->lastUpdate);
    ASSERT_EQ(sentNumbers(*connection), (std::vector<int32_t>{2}));
    EXPECT_GE(connection->sendDatagrams.at(2).sendTime, now);
}

}  // namespace
}  // namespace ferrylink::raknet
