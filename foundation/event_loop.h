#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "foundation/event_loop_future.h"
#include "foundation/time_amount.h"

namespace ferrylink::foundation {

class Channel;
class EventLoop;

class EventLoopGroup {
public:
    virtual ~EventLoopGroup() = default;
    virtual std::shared_ptr<EventLoop> next() = 0;
    // Blocks until every loop has closed its channels, run what was queued and
    // stopped. Throws when the group was shut down already.
    virtual void syncShutdownGracefully() = 0;
};

// A task that runs again a fixed delay after each run ended, until cancelled.
class RepeatedTask : public std::enable_shared_from_this<RepeatedTask> {
public:
    using Task = std::function<void(RepeatedTask&)>;

    RepeatedTask(TimeAmount delay, std::shared_ptr<EventLoop> eventLoop, Task task);

    // No further run starts. Safe from any thread, also from inside the task.
    void cancel();
    bool isCancelled() const { return cancelled_.load(); }

    const TimeAmount delay;
    const std::shared_ptr<EventLoop> eventLoop;

private:
    friend class EventLoop;
    void run();

    std::atomic<bool> cancelled_{false};
    Task task_;
};

// One thread with a task queue, timers and an epoll poller. Everything that
// belongs to the loop (handlers, timers, channels) runs on that thread.
class EventLoop : public EventLoopGroup, public std::enable_shared_from_this<EventLoop> {
public:
    // A loop with a thread of its own, already running.
    static std::shared_ptr<EventLoop> start();
    ~EventLoop() override;

    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // A loop counts as a group of one.
    std::shared_ptr<EventLoop> next() override { return shared_from_this(); }
    void syncShutdownGracefully() override;

    bool inEventLoop() const;
    // Queues `task` to run once on the loop's thread, after tasks queued
    // earlier. Returns false, dropping the task, when the loop has stopped.
    bool execute(std::function<void()> task);

    template <typename T>
    EventLoopPromise<T> makePromise() {
        return EventLoopPromise<T>(shared_from_this());
    }
    template <typename T>
    EventLoopFuture<T> makeFailedFuture(std::exception_ptr error) {
        auto promise = makePromise<T>();
        promise.fail(std::move(error));
        return promise.futureResult();
    }
    template <typename T>
    EventLoopFuture<T> makeSucceededFuture(detail::Stored<T> value = {}) {
        auto promise = makePromise<T>();
        if constexpr (std::is_void_v<T>) {
            promise.succeed();
        } else {
            promise.succeed(std::move(value));
        }
        return promise.futureResult();
    }

    std::shared_ptr<RepeatedTask> scheduleRepeatedTask(TimeAmount initialDelay, TimeAmount delay,
                                                       RepeatedTask::Task task);
    // Runs `task` once, `delay` from now, on the loop's thread.
    void scheduleTask(TimeAmount delay, std::function<void()> task);

    // Poller plumbing for channels; loop thread only.
    using IoCallback = std::function<void(uint32_t events)>;
    void registerDescriptor(int fd, uint32_t events, IoCallback callback);
    void modifyDescriptor(int fd, uint32_t events);
    void unregisterDescriptor(int fd);
    void trackChannel(const std::shared_ptr<Channel>& channel);
    void forgetChannel(const Channel* channel);

private:
    EventLoop();
    void runLoop();
    void wake();
    void runTimers();
    bool runTasks();
    void closeChannels();

    struct Timer {
        std::chrono::steady_clock::time_point due;
        std::function<void()> task;
    };

    int epollFd_ = -1;
    int wakeFd_ = -1;
    std::thread thread_;
    std::atomic<std::thread::id> threadId_{};

    std::mutex tasksMutex_;
    std::deque<std::function<void()>> tasks_;
    std::deque<std::function<void()>> running_;  // loop thread only: the batch runTasks works through
    bool accepting_ = true;        // guarded by tasksMutex_
    bool shutdownAsked_ = false;   // guarded by tasksMutex_

    // Loop thread only from here on.
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> timers_;
    std::unordered_map<int, IoCallback> descriptors_;
    std::unordered_map<const Channel*, std::weak_ptr<Channel>> channels_;
};

// The group of loops the process runs on; built with one thread everywhere.
class MultiThreadedEventLoopGroup : public EventLoopGroup {
public:
    explicit MultiThreadedEventLoopGroup(int numberOfThreads);
    ~MultiThreadedEventLoopGroup() override;

    std::shared_ptr<EventLoop> next() override;
    void syncShutdownGracefully() override;

private:
    std::vector<std::shared_ptr<EventLoop>> loops_;
    std::atomic<size_t> nextIndex_{0};
    std::atomic<bool> shutDown_{false};
};

}  // namespace ferrylink::foundation
