#include <gtest/gtest.h>

#include "foundation/byte_buffer.h"
#include "raknet/packets/acknowledge_packet.h"
#include "raknet/packets/connected_packets.h"
#include "raknet/packets/datagram.h"
#include "raknet/packets/encapsulated_packet.h"
#include "support/hex.h"

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using ferrylink::testing::bufferFromHex;

EncapsulatedPacket frame(Reliability kind, const std::string& payloadHex) {
    EncapsulatedPacket made;
    made.reliability = kind;
    made.buffer = bufferFromHex(payloadHex);
    return made;
}

ByteBuffer encoded(const EncapsulatedPacket& frame) {
    ByteBuffer buffer;
    frame.encode(buffer);
    return buffer;
}

// --- Frames ------------------------------------------------------------------------

TEST(EncapsulatedPacketTest, ReliableOrderedTakesTwentyBytesForTenOfPayload) {
    auto made = frame(Reliability::RELIABLE_ORDERED, "00 01 02 03 04 05 06 07 08 09");
    made.messageIndex = 1;
    made.orderIndex = 0x020304;
    made.orderChannel = 5;
    EXPECT_EQ(made.size(), 20);
    auto bytes = encoded(made);
    EXPECT_BYTES(bytes, "60 00 50  01 00 00  04 03 02 05  00 01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(made.buffer->readerIndex(), 0u);  // can be sent again

    EncapsulatedPacket decoded;
    ASSERT_TRUE(decoded.decode(bytes));
    EXPECT_EQ(decoded.reliability, Reliability::RELIABLE_ORDERED);
    EXPECT_EQ(decoded.messageIndex, 1);
    EXPECT_EQ(decoded.orderIndex, 0x020304);
    EXPECT_EQ(decoded.orderChannel, 5);
    EXPECT_FALSE(decoded.split);
    EXPECT_BYTES(*decoded.buffer, "00 01 02 03 04 05 06 07 08 09");
}

TEST(EncapsulatedPacketTest, UnreliableCarriesNoIndices) {
    auto bytes = encoded(frame(Reliability::UNRELIABLE, "15"));
    EXPECT_BYTES(bytes, "00 00 08 15");
    EncapsulatedPacket decoded;
    ASSERT_TRUE(decoded.decode(bytes));
    EXPECT_FALSE(decoded.messageIndex);
    EXPECT_EQ(decoded.size(), 4);
}

TEST(EncapsulatedPacketTest, SplitAddsTenBytes) {
    auto plain = frame(Reliability::RELIABLE, "AA BB");
    plain.messageIndex = 7;
    auto split = plain;
    split.split = true;
    split.splitCount = 3;
    split.splitId = 1;
    split.splitIndex = 2;
    EXPECT_BYTES(encoded(plain), "40 00 10 07 00 00 AA BB");
    EXPECT_BYTES(encoded(split), "50 00 10 07 00 00  00 00 00 03  00 01  00 00 00 02  AA BB");
    EXPECT_EQ(split.size() - plain.size(), 10);

    auto bytes = encoded(split);
    EncapsulatedPacket decoded;
    ASSERT_TRUE(decoded.decode(bytes));
    EXPECT_TRUE(decoded.split);
    EXPECT_EQ(decoded.splitCount, 3);
    EXPECT_EQ(decoded.splitId, 1);
    EXPECT_EQ(decoded.splitIndex, 2);
}

TEST(EncapsulatedPacketTest, ReliableSequencedHasThirteenHeaderBytesWhileSizeCountsNine) {
    auto bytes = bufferFromHex("80 00 08  01 00 00  02 00 00  03 00 00 00  EE");
    EncapsulatedPacket decoded;
    ASSERT_TRUE(decoded.decode(bytes));
    EXPECT_EQ(decoded.reliability, Reliability::RELIABLE_SEQUENCED);
    EXPECT_EQ(decoded.messageIndex, 1);
    EXPECT_EQ(decoded.sequenceIndex, 2);
    EXPECT_EQ(decoded.orderIndex, 3);
    EXPECT_BYTES(*decoded.buffer, "EE");
    EXPECT_EQ(decoded.size() - 1, 9);
}

TEST(EncapsulatedPacketTest, LengthInBitsIsRoundedUpToBytes) {
    auto bytes = bufferFromHex("00 00 0D AA BB CC");
    EncapsulatedPacket decoded;
    ASSERT_TRUE(decoded.decode(bytes));
    EXPECT_BYTES(*decoded.buffer, "AA BB");
    EXPECT_EQ(bytes.readableBytes(), 1u);
}

using EncapsulatedPacketDeathTest = ::testing::Test;

// Frames of our own that the wire can't carry are a fault of this program.
TEST_F(EncapsulatedPacketDeathTest, FramesTheWireCantCarryEndTheProcess) {
    auto sequenced = frame(Reliability::RELIABLE_SEQUENCED, "00");
    sequenced.messageIndex = 0;
    EXPECT_DEATH(encoded(sequenced), "");
    EXPECT_DEATH(encoded(frame(Reliability::RELIABLE, "00")), "");  // no messageIndex
    auto split = frame(Reliability::UNRELIABLE, "00");
    split.split = true;
    split.splitId = 32768;
    EXPECT_DEATH(encoded(split), "");
    EncapsulatedPacket big = frame(Reliability::UNRELIABLE, "");
    big.buffer = ByteBuffer(std::vector<uint8_t>(4096));
    EXPECT_DEATH(encoded(big), "");
    big.buffer = ByteBuffer(std::vector<uint8_t>(4095));
    EXPECT_EQ(encoded(big).readableBytes(), 3u + 4095u);
}

// --- Datagrams ----------------------------------------------------------------------

TEST(DatagramTest, HeaderIsIdAndLittleEndianSequenceNumber) {
    Datagram datagram;
    datagram.sequenceNumber = 0x123456;
    datagram.packets.push_back(frame(Reliability::UNRELIABLE, "15"));
    auto second = frame(Reliability::RELIABLE, "FE 01");
    second.messageIndex = 2;
    datagram.packets.push_back(second);
    EXPECT_EQ(datagram.length(), 4 + 4 + 8);
    ByteBuffer buffer;
    datagram.encode(buffer);
    EXPECT_BYTES(buffer, "80 56 34 12  00 00 08 15  40 00 10 02 00 00 FE 01");

    Datagram decoded;
    ASSERT_TRUE(decoded.decode(buffer));
    EXPECT_EQ(decoded.sequenceNumber, 0x123456u);
    ASSERT_EQ(decoded.packets.size(), 2u);
    EXPECT_EQ(decoded.packets[1].messageIndex, 2);
    EXPECT_EQ(Datagram().sendTime, -1);
}

TEST(DatagramTest, OnlyTheLow24BitsOfTheNumberGoOut) {
    Datagram datagram;
    datagram.sequenceNumber = 0x01000002;
    ByteBuffer buffer;
    datagram.encode(buffer);
    EXPECT_BYTES(buffer, "80 02 00 00");
}

// --- Acknowledgements ---------------------------------------------------------------

// Any non-zero flag byte marks a single number.
TEST(AcknowledgePacketTest, DecodeReplacesEntries) {
    auto buffer = bufferFromHex("A0 00 02  7F 07 00 00  00 01 00 00 04 00 00");
    NACK nack;
    nack.packets = {{100, 200}};
    ASSERT_TRUE(nack.decode(buffer));
    EXPECT_EQ(nack.id, 0xA0);
    EXPECT_EQ(nack.packets, (std::vector<AcknowledgePacket::Entry>{{7, 7}, {1, 4}}));
}

struct MergeCase {
    std::vector<uint32_t> queue;
    int32_t budget;
    std::vector<AcknowledgePacket::Entry> entries;
    std::vector<uint32_t> queueAfter;
    int32_t budgetAfter;
};

class AcknowledgeMergeTest : public ::testing::TestWithParam<MergeCase> {};

TEST_P(AcknowledgeMergeTest, MergesWithinTheBudget) {
    auto queue = GetParam().queue;
    AcknowledgePacket packet(ACK::ID, queue, GetParam().budget);
    EXPECT_EQ(packet.id, ACK::ID);
    EXPECT_EQ(packet.packets, GetParam().entries);
    EXPECT_EQ(queue, GetParam().queueAfter);
    EXPECT_EQ(packet.mtu, GetParam().budgetAfter);
}

INSTANTIATE_TEST_SUITE_P(
    Queues, AcknowledgeMergeTest,
    ::testing::Values(
        // Unsorted with a duplicate: two records, nothing left.
        MergeCase{{5, 3, 4, 4, 9}, 1000, {{3, 5}, {9, 9}}, {}, 1000 - 7 - 4},
        // One number: one record when 4 bytes are left, else nothing and the queue as it was.
        MergeCase{{8}, 4, {{8, 8}}, {}, 0},
        MergeCase{{8}, 3, {}, {8}, 3},
        MergeCase{{}, 100, {}, {}, 100},
        // The number that opens a range counts as consumed even when that range never fits.
        MergeCase{{3, 1}, 4, {{1, 1}}, {}, 0},
        MergeCase{{1, 3, 5}, 8, {{1, 1}, {3, 3}}, {}, 0},
        // Out of budget at the first gap: nothing taken, the queue left sorted.
        MergeCase{{5, 3, 1}, 3, {}, {1, 3, 5}, 3},
        // A range costs 7 bytes; of the range that no longer fits, only its
        // opening number has left the queue.
        MergeCase{{1, 2, 3, 10, 11, 20, 21}, 14, {{1, 3}, {10, 11}}, {21}, 0}),
    [](const auto& info) { return "Case" + std::to_string(info.index); });

TEST(AcknowledgePacketTest, MergedRecordsRoundTrip) {
    std::vector<uint32_t> queue{0, 1, 2, 4, 6, 7};
    AcknowledgePacket ack(ACK::ID, queue, 100);
    ByteBuffer buffer;
    ack.encode(buffer);
    EXPECT_BYTES(buffer, "C0 00 03  00 00 00 00 02 00 00  01 04 00 00  00 06 00 00 07 00 00");
}

// --- Connected control packets --------------------------------------------------------

TEST(ConnectedPacketTest, PingAndPong) {
    ConnectedPing ping;
    ping.clientTime = 0x0102;
    ByteBuffer buffer;
    ping.encode(buffer);
    EXPECT_BYTES(buffer, "00 00 00 00 00 00 00 01 02");

    ConnectedPong pong;
    pong.clientTime = 1;
    pong.serverTime = 2;
    ByteBuffer pongBytes;
    pong.encode(pongBytes);
    EXPECT_BYTES(pongBytes, "03 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 02");
}

TEST(ConnectedPacketTest, ConnectionRequestWithAndWithoutSecurityByte) {
    auto withFlag = bufferFromHex("09 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00 63 00");
    ConnectionRequest request;
    ASSERT_TRUE(request.decode(withFlag));
    EXPECT_EQ(request.clientId, 7);
    EXPECT_EQ(request.timestamp, 99);
    EXPECT_EQ(withFlag.readableBytes(), 0u);
    auto without = bufferFromHex("09 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00 63");
    EXPECT_TRUE(ConnectionRequest().decode(without));
}

TEST(ConnectedPacketTest, AcceptedHasTwentyAddressesAndTheRequestsTimestamp) {
    ConnectionRequestAccepted accepted;
    accepted.address = foundation::SocketAddress::makeResolving("127.0.0.1", 50000);
    accepted.timestamp = 0x0A0B;
    accepted.nExtraAdresses = 20;
    ByteBuffer buffer;
    accepted.encode(buffer);
    ASSERT_EQ(buffer.readableBytes(), 166u);
    std::string expected = "10  04 80 FF FF FE C3 50  00 00  04 80 FF FF FE 4A BC";
    for (int i = 0; i < 19; ++i) {
        expected += "  04 FF FF FF FF 4A BC";
    }
    expected += "  00 00 00 00 00 00 0A 0B";
    auto head = *buffer.getSlice(0, 166 - 8);
    EXPECT_BYTES(head, expected);
}

TEST(ConnectedPacketTest, AcceptedForAnIPv6PeerKeepsIPv4Fillers) {
    ConnectionRequestAccepted accepted;
    accepted.address = foundation::SocketAddress::makeResolving("::1", 50000);
    accepted.timestamp = 0;
    accepted.nExtraAdresses = 20;
    ByteBuffer buffer;
    accepted.encode(buffer);
    EXPECT_EQ(buffer.readableBytes(), 1u + 29 + 2 + 20 * 7 + 16);
}

TEST(ConnectedPacketTest, NewIncomingConnectionCountsExtraAddresses) {
    auto none = bufferFromHex("13 04 80 FF FF FE 4A BC  00 00 00 00 00 00 00 01  00 00 00 00 00 00 00 02");
    NewIncomingConnection packet;
    ASSERT_TRUE(packet.decode(none));
    EXPECT_EQ(packet.nExtraAdresses, 0);
    EXPECT_EQ(*packet.address->port(), 19132);
    EXPECT_EQ(packet.pongTimestamp, 1);
    EXPECT_EQ(packet.timestamp, 2);

    auto two = bufferFromHex("13 04 80 FF FF FE 4A BC  04 FF FF FF FF 00 00  04 FF FF FF FF 00 00"
                             " 00 00 00 00 00 00 00 01  00 00 00 00 00 00 00 02");
    NewIncomingConnection withExtras;
    ASSERT_TRUE(withExtras.decode(two));
    EXPECT_EQ(withExtras.nExtraAdresses, 2);
    EXPECT_EQ(withExtras.timestamp, 2);
}

using ConnectedPacketDeathTest = ::testing::Test;

TEST_F(ConnectedPacketDeathTest, AcceptedNeedsAnAddress) {
    ConnectionRequestAccepted accepted;
    accepted.nExtraAdresses = 0;
    ByteBuffer buffer;
    EXPECT_DEATH(accepted.encode(buffer), "");
}

}  // namespace
}  // namespace ferrylink::raknet
