#include "foundation/dispatch_queue.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "foundation/clock.h"
#include "foundation/fatal.h"

namespace ferrylink::foundation {

namespace {
// A delayed block re-reads Clock at least this often, so a test that moves
// the clock forward is noticed without a real wait of the full delay.
constexpr std::chrono::milliseconds clockRecheck{50};
}  // namespace

struct DispatchQueue::State : std::enable_shared_from_this<DispatchQueue::State> {
    State(std::string label, Kind kind) : label(std::move(label)), kind(kind) {}

    const std::string label;
    const Kind kind;

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> ready;
    std::multimap<int64_t, std::function<void()>> delayed;  // by Clock milliseconds
    bool released = false;     // no handle is left
    bool stopAsked = false;    // main queue: run() should return
    bool workerRunning = false;
    int idleWorkers = 0;       // global queue

    // Moves due delayed blocks to `ready`. Caller holds the mutex.
    void promoteDue() {
        int64_t now = Clock::currentTimeMillis();
        while (!delayed.empty() && delayed.begin()->first <= now) {
            ready.push_back(std::move(delayed.begin()->second));
            delayed.erase(delayed.begin());
        }
    }

    // Waits for something to run. Caller holds the lock.
    void waitForWork(std::unique_lock<std::mutex>& lock, std::chrono::steady_clock::time_point limit) {
        if (delayed.empty()) {
            changed.wait_until(lock, limit);
            return;
        }
        auto untilDue = std::chrono::milliseconds(delayed.begin()->first - Clock::currentTimeMillis());
        auto wait = std::min<std::chrono::milliseconds>(std::max(untilDue, std::chrono::milliseconds(0)), clockRecheck);
        changed.wait_until(lock, std::min(limit, std::chrono::steady_clock::now() + wait));
    }

    void startWorkerIfNeeded() {
        // Caller holds the mutex.
        if (kind == Kind::serial && !workerRunning) {
            workerRunning = true;
            std::thread([self = shared_from_this()] { self->serialWorker(); }).detach();
        } else if (kind == Kind::concurrent && idleWorkers == 0) {
            ++idleWorkers;
            std::thread([self = shared_from_this()] { self->concurrentWorker(); }).detach();
        }
    }

    void serialWorker();
    void concurrentWorker();
};

namespace {
thread_local const DispatchQueue::State* currentQueue = nullptr;
constexpr auto forever = std::chrono::steady_clock::time_point::max();
}  // namespace

void DispatchQueue::State::serialWorker() {
    currentQueue = this;
    std::unique_lock lock(mutex);
    while (true) {
        promoteDue();
        if (!ready.empty()) {
            auto work = std::move(ready.front());
            ready.pop_front();
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
            continue;
        }
        if (released && delayed.empty()) {
            workerRunning = false;
            return;
        }
        waitForWork(lock, forever);
    }
}

void DispatchQueue::State::concurrentWorker() {
    std::unique_lock lock(mutex);
    while (true) {
        promoteDue();
        if (!ready.empty()) {
            auto work = std::move(ready.front());
            ready.pop_front();
            --idleWorkers;
            // Someone else must keep watching the queue while this block runs,
            // which may be for a long time (a wait on a close future).
            if (!ready.empty() || !delayed.empty()) {
                startWorkerIfNeeded();
            }
            lock.unlock();
            currentQueue = this;
            work();
            work = nullptr;
            currentQueue = nullptr;
            lock.lock();
            ++idleWorkers;
            continue;
        }
        waitForWork(lock, forever);
    }
}

struct DispatchQueue::Owner {
    explicit Owner(std::shared_ptr<State> state) : state(std::move(state)) {}
    ~Owner() {
        std::lock_guard lock(state->mutex);
        state->released = true;
        state->changed.notify_all();
    }
    std::shared_ptr<State> state;
};

DispatchQueue::DispatchQueue(std::string label) : DispatchQueue(std::move(label), Kind::serial) {}

DispatchQueue::DispatchQueue(std::string label, Kind kind)
    : owner_(std::make_shared<Owner>(std::make_shared<State>(std::move(label), kind))) {}

DispatchQueue& DispatchQueue::main() {
    // Never destroyed: blocks may still be queued to it while the process exits.
    static auto* queue = new DispatchQueue("main", Kind::mainThread);
    return *queue;
}

DispatchQueue& DispatchQueue::global() {
    static auto* queue = new DispatchQueue("global", Kind::concurrent);
    return *queue;
}

const std::string& DispatchQueue::label() const { return owner_->state->label; }

bool DispatchQueue::isCurrent() const { return currentQueue == owner_->state.get(); }

void DispatchQueue::async(std::function<void()> work) const {
    auto& state = *owner_->state;
    std::lock_guard lock(state.mutex);
    state.ready.push_back(std::move(work));
    state.startWorkerIfNeeded();
    state.changed.notify_all();
}

void DispatchQueue::asyncAfter(std::chrono::milliseconds delay, std::function<void()> work) const {
    auto& state = *owner_->state;
    std::lock_guard lock(state.mutex);
    state.delayed.emplace(Clock::currentTimeMillis() + delay.count(), std::move(work));
    state.startWorkerIfNeeded();
    state.changed.notify_all();
}

bool DispatchQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) const {
    auto& state = *owner_->state;
    if (state.kind != Kind::mainThread) {
        fatalFault("only the main queue is run by its caller");
    }
    auto limit = timeout.count() < 0 ? forever : std::chrono::steady_clock::now() + timeout;
    const State* previous = currentQueue;
    currentQueue = &state;
    std::unique_lock lock(state.mutex);
    bool finished = false;
    while (true) {
        if (done && done()) {
            finished = true;
            break;
        }
        if (state.stopAsked) {
            state.stopAsked = false;
            break;
        }
        state.promoteDue();
        if (!state.ready.empty()) {
            auto work = std::move(state.ready.front());
            state.ready.pop_front();
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
            continue;
        }
        if (std::chrono::steady_clock::now() >= limit) {
            break;
        }
        // `done` may depend on other threads: look again now and then.
        state.waitForWork(lock, done ? std::min(limit, std::chrono::steady_clock::now() + clockRecheck) : limit);
    }
    currentQueue = previous;
    return finished;
}

void DispatchQueue::run() const { runUntil(nullptr, std::chrono::milliseconds(-1)); }

void DispatchQueue::stop() const {
    auto& state = *owner_->state;
    std::lock_guard lock(state.mutex);
    state.stopAsked = true;
    state.changed.notify_all();
}

}  // namespace ferrylink::foundation
