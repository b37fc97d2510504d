#include "foundation/event_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace ferrylink::foundation {
namespace {

TEST(EventLoopTasks, ExecuteRunsInOrderOnTheLoopThread) {
    MultiThreadedEventLoopGroup group(1);
    auto loop = group.next();
    EXPECT_FALSE(loop->inEventLoop());

    std::vector<int> seen;
    auto promise = loop->makePromise<void>();
    for (int i = 0; i < 5; ++i) {
        loop->execute([&seen, i, loop] {
            EXPECT_TRUE(loop->inEventLoop());
            seen.push_back(i);
        });
    }
    loop->execute([promise] { promise.succeed(); });
    promise.futureResult().wait();
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(RepeatedTaskTest, CancelFromInsideStopsWithoutAFurtherRun) {
    MultiThreadedEventLoopGroup group(1);
    auto loop = group.next();
    std::atomic<int> runs{0};
    auto done = loop->makePromise<void>();
    loop->scheduleRepeatedTask(TimeAmount::zero(), TimeAmount::milliseconds(1), [&runs, done](RepeatedTask& task) {
        if (++runs == 3) {
            task.cancel();
            done.succeed();
        }
    });
    done.futureResult().wait();
    // Let a few more tick periods pass on the loop itself; none may run the task.
    auto later = loop->makePromise<void>();
    loop->scheduleTask(TimeAmount::milliseconds(30), [later] { later.succeed(); });
    later.futureResult().wait();
    EXPECT_EQ(runs.load(), 3);
}

TEST(FuturesTest, CallbacksRunOnTheLoopAndWaitReturnsTheValue) {
    MultiThreadedEventLoopGroup group(1);
    auto loop = group.next();
    auto promise = loop->makePromise<int>();
    std::promise<bool> ranOnLoop;
    promise.futureResult().whenComplete([&](const FutureResult<int>& result) {
        EXPECT_EQ(*result.value, 7);
        ranOnLoop.set_value(loop->inEventLoop());
    });
    std::thread([promise] { promise.succeed(7); }).join();
    EXPECT_EQ(promise.futureResult().wait(), 7);
    EXPECT_TRUE(ranOnLoop.get_future().get());
}

TEST(FuturesTest, FailedFutureThrowsEveryTime) {
    MultiThreadedEventLoopGroup group(1);
    auto future = group.next()->makeFailedFuture<int>(std::make_exception_ptr(std::runtime_error("boom")));
    EXPECT_THROW(future.wait(), std::runtime_error);
    EXPECT_THROW(future.wait(), std::runtime_error);
}

TEST(GroupShutdown, RunsRemainingTasksJoinsAndStillCompletesPromises) {
    MultiThreadedEventLoopGroup group(1);
    auto loop = group.next();
    auto promise = loop->makePromise<void>();
    std::atomic<int> ran{0};
    loop->execute([&ran, loop] {
        ++ran;
        loop->execute([&ran] { ++ran; });
    });
    group.syncShutdownGracefully();
    EXPECT_EQ(ran.load(), 2);
    EXPECT_FALSE(loop->execute([] {}));
    EXPECT_THROW(group.syncShutdownGracefully(), std::runtime_error);
    promise.succeed();
    EXPECT_NO_THROW(promise.futureResult().wait());
}

}  // namespace
}  // namespace ferrylink::foundation
