#include "raknet/reliable_window.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using Payloads = std::vector<std::vector<uint8_t>>;

EncapsulatedPacket frame(std::optional<int32_t> messageIndex, uint8_t byte) {
    EncapsulatedPacket made;
    made.reliability = messageIndex ? Reliability::RELIABLE : Reliability::UNRELIABLE;
    made.messageIndex = messageIndex;
    made.buffer = ByteBuffer(std::vector<uint8_t>{byte});
    return made;
}

class ReliableWindowTest : public ::testing::Test {
protected:
    void receive(std::optional<int32_t> messageIndex, uint8_t byte) {
        window.receive(frame(messageIndex, byte), [this](EncapsulatedPacket& delivered) {
            auto bytes = delivered.buffer->readableView();
            payloads.emplace_back(bytes.begin(), bytes.end());
            return payloads.size() < stopAfter;
        });
    }

    ReliableWindow window;
    Payloads payloads;
    size_t stopAfter = 1000;
};

TEST_F(ReliableWindowTest, UnreliableFrameOvertakesWaitingOnes) {
    receive(1, 0xF1);
    receive(std::nullopt, 0xE0);
    receive(0, 0xF0);
    EXPECT_EQ(payloads, (Payloads{{0xE0}, {0xF0}, {0xF1}}));
}

TEST_F(ReliableWindowTest, WalkNeverDeliversTwiceOrOutOfOrder) {
    // The walk follows the table's own order and may stop early, but what
    // it delivers is always the next in line.
    receive(3, 0xF3);
    receive(2, 0xF2);
    receive(1, 0xF1);
    receive(0, 0xF0);
    receive(4, 0xF4);
    Payloads inLine{{0xF0}, {0xF1}, {0xF2}, {0xF3}, {0xF4}};
    ASSERT_FALSE(payloads.empty());
    ASSERT_LE(payloads.size(), inLine.size());
    EXPECT_TRUE(std::equal(payloads.begin(), payloads.end(), inLine.begin()));
    EXPECT_EQ(window.lastReliableIndex() + 1, static_cast<int32_t>(payloads.size()));
}

TEST_F(ReliableWindowTest, DeliveryThatSaysStopEndsTheWalk) {
    receive(1, 0xF1);
    stopAfter = 1;
    receive(0, 0xF0);
    EXPECT_EQ(payloads, (Payloads{{0xF0}}));
    EXPECT_EQ(window.waiting(), 1u);
}

}  // namespace
}  // namespace ferrylink::raknet
