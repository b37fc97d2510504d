#include "raknet/resend_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using Numbers = std::vector<int32_t>;

Datagram datagramNumbered(uint32_t number) {
    Datagram datagram;
    datagram.sequenceNumber = number;
    EncapsulatedPacket frame;
    frame.reliability = Reliability::UNRELIABLE;
    frame.buffer = ByteBuffer(std::vector<uint8_t>(20, 0xFE));
    datagram.packets.push_back(frame);
    return datagram;  // 4 + 3 + 20 bytes as counted
}

AcknowledgePacket naming(std::vector<AcknowledgePacket::Entry> ranges) {
    AcknowledgePacket packet(NACK::ID);
    packet.packets = std::move(ranges);
    return packet;
}

Numbers held(const ResendTable& table) {
    Numbers numbers = table.numbers();
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

class ResendTableTest : public ::testing::Test {
protected:
    ResendTableTest() {
        for (uint32_t number : {3u, 4u, 5u, 10u}) {
            table.store(datagramNumbered(number));
        }
    }
    ResendTable table;
};

TEST_F(ResendTableTest, AcknowledgementTakesOnlyWhatIsHeldHoweverWideItsRanges) {
    // 292 ranges of sixteen million numbers each, as in a stall attempt.
    std::vector<AcknowledgePacket::Entry> ranges(292, AcknowledgePacket::Entry{0, 0xFFFFFF});
    ranges.front() = {4, 0xFFFFFF};
    table.acknowledge(naming({{4, 4}, {6, 0xFFFFFF}}));
    EXPECT_EQ(held(table), (Numbers{3, 5}));
    table.acknowledge(naming(ranges));
    EXPECT_TRUE(table.empty());
}

TEST_F(ResendTableTest, NackResendsWhatItNamesOnceATickWhileTheCreditLasts) {
    EXPECT_TRUE(table.nackedForResend(naming({{0, 0xFFFFFF}}), 1).empty());  // nothing earned yet

    table.earn(27);  // 108 bytes of credit: four datagrams of 27 bytes
    EXPECT_EQ(table.nackedForResend(naming({{5, 5}, {3, 4}, {0, 0xFFFFFF}}), 1), (Numbers{3, 4, 5, 10}));
    table.earn(1000);
    EXPECT_TRUE(table.nackedForResend(naming({{0, 0xFFFFFF}}), 1).empty());  // all went out in this tick
    EXPECT_EQ(table.nackedForResend(naming({{10, 10}}), 2), (Numbers{10}));
}

TEST_F(ResendTableTest, NackInOrderKeepsItsOrderAndOverlapsNameANumberOnce) {
    table.earn(1000);
    EXPECT_EQ(table.nackedForResend(naming({{3, 3}, {10, 12}}), 1), (Numbers{3, 10}));
    EXPECT_EQ(table.nackedForResend(naming({{0, 6}, {4, 9}, {2, 5}}), 2), (Numbers{3, 4, 5}));
}

TEST_F(ResendTableTest, ResendByTimeIsPaidFromTheSameCredit) {
    const Datagram& first = *table.find(3);
    EXPECT_FALSE(table.pay(first));
    table.earn(7);
    EXPECT_TRUE(table.pay(first));
    EXPECT_FALSE(table.pay(first));
}

}  // namespace
}  // namespace ferrylink::raknet
