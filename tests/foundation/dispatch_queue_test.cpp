#include "foundation/dispatch_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <numeric>
#include <thread>

#include "foundation/clock.h"

namespace ferrylink::foundation {
namespace {

using namespace std::chrono_literals;

TEST(SerialQueue, RunsBlocksOneAfterAnotherInOrder) {
    DispatchQueue queue("test.serial");
    std::vector<int> order;
    std::atomic<int> running{0};
    std::promise<void> done;
    for (int i = 0; i < 20; ++i) {
        queue.async([&, i] {
            EXPECT_EQ(++running, 1);
            EXPECT_TRUE(queue.isCurrent());
            order.push_back(i);
            --running;
        });
    }
    queue.async([&] { done.set_value(); });
    done.get_future().wait();
    std::vector<int> expected(20);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueue, DelayedBlocksFollowTheClock) {
    DispatchQueue queue("test.delayed");
    std::promise<int64_t> ran;
    int64_t queuedAt = Clock::currentTimeMillis();
    queue.asyncAfter(15000ms, [&] { ran.set_value(Clock::currentTimeMillis()); });
    auto result = ran.get_future();
    EXPECT_EQ(result.wait_for(100ms), std::future_status::timeout);
    Clock::advance(15000);
    ASSERT_EQ(result.wait_for(5s), std::future_status::ready);
    EXPECT_GE(result.get() - queuedAt, 15000);
}

TEST(SerialQueue, WorkQueuedBeforeTheLastHandleGoesStillRuns) {
    std::promise<void> ran;
    {
        DispatchQueue queue("test.dropped");
        queue.async([] { std::this_thread::sleep_for(10ms); });
        queue.async([&] { ran.set_value(); });
    }
    EXPECT_EQ(ran.get_future().wait_for(5s), std::future_status::ready);
}

TEST(GlobalQueue, ABlockedBlockDoesNotHoldUpTheNext) {
    std::promise<void> release;
    auto released = release.get_future().share();
    std::promise<void> second;
    DispatchQueue::global().async([released] { released.wait(); });
    DispatchQueue::global().async([&] { second.set_value(); });
    EXPECT_EQ(second.get_future().wait_for(5s), std::future_status::ready);
    release.set_value();
}

TEST(MainQueue, RunsOnTheCallingThreadUntilDoneOrStopped) {
    auto caller = std::this_thread::get_id();
    std::atomic<bool> ranHere{false};
    std::thread([&] { DispatchQueue::main().async([&] { ranHere = std::this_thread::get_id() == caller; }); }).join();
    EXPECT_TRUE(DispatchQueue::main().runUntil([&] { return ranHere.load(); }, 5s));
    DispatchQueue::main().async([] { DispatchQueue::main().stop(); });
    DispatchQueue::main().run();
}

}  // namespace
}  // namespace ferrylink::foundation
