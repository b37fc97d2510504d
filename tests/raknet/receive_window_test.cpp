#include "raknet/receive_window.h"

#include <gtest/gtest.h>

#include <vector>

namespace ferrylink::raknet {
namespace {

using Arrival = ReceiveWindow::Arrival;

struct WindowCase {
    const char* name;
    std::vector<uint32_t> arrivals;
    std::vector<uint32_t> acknowledged;
    std::vector<uint32_t> missing;
    int32_t windowStart;
};

class ReceiveWindowTest : public ::testing::TestWithParam<WindowCase> {};

TEST_P(ReceiveWindowTest, TakesNewNumbersAndReportsTheGapsBelowThem) {
    ReceiveWindow window;
    for (uint32_t number : GetParam().arrivals) {
        (void)window.arrive(number);
    }
    EXPECT_EQ(window.ackQueue(), GetParam().acknowledged);
    EXPECT_EQ(window.nackQueue(), GetParam().missing);
    EXPECT_EQ(window.windowStart(), GetParam().windowStart);
    EXPECT_EQ(window.windowEnd(), GetParam().windowStart + 2049);
}

INSTANTIATE_TEST_SUITE_P(
    Arrivals, ReceiveWindowTest,
    ::testing::Values(WindowCase{"FirstZeroOpensTheWindow", {0}, {0}, {}, 0},
                      // 1 was overtaken: under the window now, unacknowledged, still reported missing.
                      WindowCase{"FirstThreeThenOne", {3, 1}, {3}, {0, 1, 2}, 3},
                      WindowCase{"BeyondTheWindowIsNoArrival", {2049}, {}, {}, -1},
                      WindowCase{"DuplicateIsAcknowledgedOnce", {0, 1, 1}, {0, 1}, {}, 1},
                      WindowCase{"LateOneInsideTheGapStaysReported", {0, 2, 1}, {0, 2}, {1}, 2}),
    [](const auto& info) { return info.param.name; });

TEST(ReceiveWindowLimitTest, GapsPastTheQueueLimitAreAnOverflow) {
    ReceiveWindow window;
    uint32_t number = 0;
    // Each jump of 2048 adds 2047 missing numbers; four fit under the limit.
    for (int jump = 0; jump < 5; ++jump, number += 2048) {
        EXPECT_EQ(window.arrive(number), Arrival::taken) << number;
    }
    EXPECT_EQ(window.nackQueue().size(), 4u * 2047u);
    EXPECT_EQ(window.arrive(number), Arrival::overflow);
    EXPECT_EQ(window.nackQueue().size(), 4u * 2047u);  // nothing taken
}

}  // namespace
}  // namespace ferrylink::raknet
