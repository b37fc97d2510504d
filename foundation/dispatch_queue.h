#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace ferrylink::foundation {

// A queue of blocks, the unit of thread ownership above the event loop:
// - a serial queue runs its blocks one after another on a thread of its own;
// - the global queue runs each block as soon as a worker thread is free;
// - the main queue runs its blocks on the thread that calls run().
//
// DispatchQueue is a handle: copies name the same queue. A serial queue's
// thread ends once every handle is gone and nothing is left to run, delayed
// blocks included, so work queued on a queue that is being dropped still runs.
class DispatchQueue {
public:
    // A new serial queue.
    explicit DispatchQueue(std::string label);

    static DispatchQueue& main();
    static DispatchQueue& global();

    const std::string& label() const;
    // True when the caller runs on this queue.
    bool isCurrent() const;

    void async(std::function<void()> work) const;
    // Runs `work` once `delay` has passed on Clock, the transport's wall clock,
    // so tests can move time forward instead of sleeping.
    void asyncAfter(std::chrono::milliseconds delay, std::function<void()> work) const;

    // Main queue only: runs its blocks on the calling thread until stop().
    void run() const;
    // Main queue only: runs blocks until `done()` holds or `timeout` passes;
    // returns whether `done()` held. For tests and for short waits at exit.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) const;
    void stop() const;

    struct State;

private:
    enum class Kind { serial, concurrent, mainThread };
    DispatchQueue(std::string label, Kind kind);

    struct Owner;
    std::shared_ptr<Owner> owner_;
};

}  // namespace ferrylink::foundation
