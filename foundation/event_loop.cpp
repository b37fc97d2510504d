#include "foundation/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "foundation/channel.h"
#include "foundation/fatal.h"

namespace ferrylink::foundation {

std::string errorDescription(const std::exception_ptr& error) {
    if (!error) {
        return "";
    }
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "unknown error";
    }
}

namespace detail {

bool executeOnLoop(EventLoop& loop, std::function<void()> task) { return loop.execute(std::move(task)); }

bool inEventLoop(const EventLoop& loop) { return loop.inEventLoop(); }

void failWaitOnLoop() { fatalFault("wait() called on the event loop's own thread"); }

}  // namespace detail

RepeatedTask::RepeatedTask(TimeAmount delay, std::shared_ptr<EventLoop> eventLoop, Task task)
    : delay(delay), eventLoop(std::move(eventLoop)), task_(std::move(task)) {}

void RepeatedTask::cancel() { cancelled_.store(true); }

void RepeatedTask::run() {
    if (cancelled_.load()) {
        task_ = nullptr;
        return;
    }
    task_(*this);
    if (cancelled_.load()) {
        // Drop the task so whatever it captured is released with it.
        task_ = nullptr;
        return;
    }
    // Fixed delay: the next run is measured from the end of this one.
    eventLoop->scheduleTask(delay, [self = shared_from_this()] { self->run(); });
}

std::shared_ptr<EventLoop> EventLoop::start() {
    std::shared_ptr<EventLoop> loop(new EventLoop());
    loop->thread_ = std::thread([raw = loop.get()] { raw->runLoop(); });
    loop->threadId_.store(loop->thread_.get_id());
    return loop;
}

EventLoop::EventLoop() {
    epollFd_ = ::epoll_create1(EPOLL_CLOEXEC);
    wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (epollFd_ < 0 || wakeFd_ < 0) {
        fatalFault("cannot create the event loop's poller");
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = wakeFd_;
    ::epoll_ctl(epollFd_, EPOLL_CTL_ADD, wakeFd_, &event);
}

EventLoop::~EventLoop() {
    {
        std::lock_guard lock(tasksMutex_);
        shutdownAsked_ = true;
    }
    wake();
    if (thread_.joinable()) {
        if (thread_.get_id() == std::this_thread::get_id()) {
            thread_.detach();
        } else {
            thread_.join();
        }
    }
    ::close(wakeFd_);
    ::close(epollFd_);
}

bool EventLoop::inEventLoop() const { return threadId_.load() == std::this_thread::get_id(); }

bool EventLoop::execute(std::function<void()> task) {
    bool first = false;
    {
        std::lock_guard lock(tasksMutex_);
        if (!accepting_) {
            return false;
        }
        // Tasks already waiting have woken the loop, which takes them all in
        // one batch: one wake per batch spares a system call per task.
        first = tasks_.empty();
        tasks_.push_back(std::move(task));
    }
    // The loop's own thread looks at the queue before it waits again.
    if (first && !inEventLoop()) {
        wake();
    }
    return true;
}

void EventLoop::wake() {
    uint64_t one = 1;
    ssize_t ignored = ::write(wakeFd_, &one, sizeof(one));
    (void)ignored;
}

void EventLoop::scheduleTask(TimeAmount delay, std::function<void()> task) {
    auto due = std::chrono::steady_clock::now() + delay.duration();
    if (!inEventLoop()) {
        execute([this, due, task = std::move(task)]() mutable { timers_.emplace(due, std::move(task)); });
        return;
    }
    timers_.emplace(due, std::move(task));
}

std::shared_ptr<RepeatedTask> EventLoop::scheduleRepeatedTask(TimeAmount initialDelay, TimeAmount delay,
                                                              RepeatedTask::Task task) {
    auto repeated = std::make_shared<RepeatedTask>(delay, shared_from_this(), std::move(task));
    scheduleTask(initialDelay, [repeated] { repeated->run(); });
    return repeated;
}

void EventLoop::registerDescriptor(int fd, uint32_t events, IoCallback callback) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    ::epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &event);
    descriptors_[fd] = std::move(callback);
}

void EventLoop::modifyDescriptor(int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    ::epoll_ctl(epollFd_, EPOLL_CTL_MOD, fd, &event);
}

void EventLoop::unregisterDescriptor(int fd) {
    ::epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
    descriptors_.erase(fd);
}

void EventLoop::trackChannel(const std::shared_ptr<Channel>& channel) { channels_[channel.get()] = channel; }

void EventLoop::forgetChannel(const Channel* channel) { channels_.erase(channel); }

void EventLoop::runTimers() {
    auto now = std::chrono::steady_clock::now();
    // Timers added by a running timer wait for the next turn, even with no delay.
    std::vector<std::function<void()>> due;
    while (!timers_.empty() && timers_.begin()->first <= now) {
        due.push_back(std::move(timers_.begin()->second));
        timers_.erase(timers_.begin());
    }
    for (auto& task : due) {
        task();
    }
}

bool EventLoop::runTasks() {
    // The batch is a member so that a pass of the loop with nothing queued,
    // such as each tick of an idle server, allocates nothing.
    {
        std::lock_guard lock(tasksMutex_);
        if (tasks_.empty()) {
            return false;
        }
        running_.swap(tasks_);
    }
    for (auto& task : running_) {
        task();
    }
    running_.clear();
    return true;
}

void EventLoop::closeChannels() {
    auto open = channels_;
    for (auto& [raw, weak] : open) {
        if (auto channel = weak.lock()) {
            channel->close();
        }
    }
}

void EventLoop::runLoop() {
    threadId_.store(std::this_thread::get_id());
    epoll_event events[64];
    while (true) {
        int timeout = -1;
        {
            std::lock_guard lock(tasksMutex_);
            if (!tasks_.empty() || shutdownAsked_) {
                timeout = 0;
            }
        }
        if (timeout != 0 && !timers_.empty()) {
            auto wait = timers_.begin()->first - std::chrono::steady_clock::now();
            auto millis = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
            timeout = static_cast<int>(std::max<int64_t>(0, millis));
        }
        int count = ::epoll_wait(epollFd_, events, 64, timeout);
        if (count < 0 && errno != EINTR) {
            fatalFault("epoll_wait failed");
        }
        for (int i = 0; i < count; ++i) {
            int fd = events[i].data.fd;
            if (fd == wakeFd_) {
                uint64_t drained = 0;
                ssize_t ignored = ::read(wakeFd_, &drained, sizeof(drained));
                (void)ignored;
                continue;
            }
            auto found = descriptors_.find(fd);
            if (found != descriptors_.end()) {
                auto callback = found->second;
                callback(events[i].events);
            }
        }
        runTimers();
        runTasks();

        bool stopping = false;
        {
            std::lock_guard lock(tasksMutex_);
            stopping = shutdownAsked_;
        }
        if (stopping) {
            // Close what is open, then run everything that is still queued,
            // including what the closing queued, before the thread ends.
            closeChannels();
            while (runTasks()) {
            }
            {
                std::lock_guard lock(tasksMutex_);
                accepting_ = false;
            }
            runTasks();
            timers_.clear();
            channels_.clear();
            return;
        }
    }
}

void EventLoop::syncShutdownGracefully() {
    if (inEventLoop()) {
        fatalFault("syncShutdownGracefully() called on the event loop's own thread");
    }
    {
        std::lock_guard lock(tasksMutex_);
        if (shutdownAsked_) {
            throw std::runtime_error("EventLoop already shut down");
        }
        shutdownAsked_ = true;
    }
    wake();
    if (thread_.joinable()) {
        thread_.join();
    }
}

MultiThreadedEventLoopGroup::MultiThreadedEventLoopGroup(int numberOfThreads) {
    for (int i = 0; i < std::max(1, numberOfThreads); ++i) {
        loops_.push_back(EventLoop::start());
    }
}

MultiThreadedEventLoopGroup::~MultiThreadedEventLoopGroup() {
    if (!shutDown_.exchange(true)) {
        for (auto& loop : loops_) {
            if (!loop->inEventLoop()) {
                try {
                    loop->syncShutdownGracefully();
                } catch (const std::exception&) {
                }
            }
        }
    }
}

std::shared_ptr<EventLoop> MultiThreadedEventLoopGroup::next() {
    return loops_[nextIndex_.fetch_add(1) % loops_.size()];
}

void MultiThreadedEventLoopGroup::syncShutdownGracefully() {
    if (shutDown_.exchange(true)) {
        throw std::runtime_error("EventLoopGroup already shut down");
    }
    for (auto& loop : loops_) {
        loop->syncShutdownGracefully();
    }
}

}  // namespace ferrylink::foundation
