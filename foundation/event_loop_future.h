#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace ferrylink::foundation {

class EventLoop;

// The text of an error carried by a failed future.
std::string errorDescription(const std::exception_ptr& error);

namespace detail {

// Carries `task` to `loop`'s thread. False when the loop has stopped and will
// run nothing any more.
bool executeOnLoop(EventLoop& loop, std::function<void()> task);
bool inEventLoop(const EventLoop& loop);
void failWaitOnLoop();

template <typename T>
using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

}  // namespace detail

// What a completed future holds: a value, or the error it failed with.
template <typename T>
struct FutureResult {
    std::optional<detail::Stored<T>> value;
    std::exception_ptr error;

    bool succeeded() const { return !error; }
};

namespace detail {

template <typename T>
struct FutureState {
    explicit FutureState(std::shared_ptr<EventLoop> loop) : loop(std::move(loop)) {}

    // Sets the result once and runs the callbacks; on the loop's thread.
    void complete(FutureResult<T> outcome) {
        std::vector<std::function<void(const FutureResult<T>&)>> ready;
        {
            std::lock_guard lock(mutex);
            if (result) {
                return;
            }
            result = std::move(outcome);
            ready.swap(callbacks);
        }
        changed.notify_all();
        for (auto& callback : ready) {
            callback(*result);
        }
    }

    std::shared_ptr<EventLoop> loop;
    std::mutex mutex;
    std::condition_variable changed;
    std::optional<FutureResult<T>> result;
    std::vector<std::function<void(const FutureResult<T>&)>> callbacks;
};

}  // namespace detail

// The reading end of a promise. Callbacks run on the future's loop; wait()
// blocks any other thread until the result is there.
template <typename T>
class EventLoopFuture {
public:
    explicit EventLoopFuture(std::shared_ptr<detail::FutureState<T>> state) : state_(std::move(state)) {}

    const std::shared_ptr<EventLoop>& eventLoop() const { return state_->loop; }

    bool isComplete() const {
        std::lock_guard lock(state_->mutex);
        return state_->result.has_value();
    }

    // Runs `callback` on the loop: at once when already complete and called
    // on the loop, else when the future completes.
    void whenComplete(std::function<void(const FutureResult<T>&)> callback) const {
        std::unique_lock lock(state_->mutex);
        if (!state_->result) {
            state_->callbacks.push_back(std::move(callback));
            return;
        }
        FutureResult<T> result = *state_->result;
        lock.unlock();
        if (detail::inEventLoop(*state_->loop)) {
            callback(result);
        } else if (!detail::executeOnLoop(*state_->loop, [callback, result] { callback(result); })) {
            callback(result);
        }
    }

    // Blocks until complete; returns the value or throws the error, the same
    // one on every call. Must not be called on the loop's thread.
    detail::Stored<T> wait() const {
        if (detail::inEventLoop(*state_->loop)) {
            detail::failWaitOnLoop();
        }
        std::unique_lock lock(state_->mutex);
        state_->changed.wait(lock, [this] { return state_->result.has_value(); });
        if (state_->result->error) {
            std::rethrow_exception(state_->result->error);
        }
        return *state_->result->value;
    }

private:
    std::shared_ptr<detail::FutureState<T>> state_;
};

// The writing end. Completes exactly once, from any thread; a completion off
// the loop is carried to the loop first.
template <typename T>
class EventLoopPromise {
public:
    explicit EventLoopPromise(std::shared_ptr<EventLoop> loop)
        : state_(std::make_shared<detail::FutureState<T>>(std::move(loop))) {}

    EventLoopFuture<T> futureResult() const { return EventLoopFuture<T>(state_); }

    template <typename U = T>
        requires(!std::is_void_v<U>)
    void succeed(U value) const {
        FutureResult<T> result;
        result.value = std::move(value);
        deliver(std::move(result));
    }

    template <typename U = T>
        requires std::is_void_v<U>
    void succeed() const {
        FutureResult<T> result;
        result.value = std::monostate{};
        deliver(std::move(result));
    }

    void fail(std::exception_ptr error) const {
        FutureResult<T> result;
        result.error = std::move(error);
        deliver(std::move(result));
    }

    template <typename E>
    void fail(E error) const {
        fail(std::make_exception_ptr(std::move(error)));
    }

private:
    void deliver(FutureResult<T> result) const {
        auto state = state_;
        if (detail::inEventLoop(*state->loop)) {
            state->complete(std::move(result));
            return;
        }
        auto carried = std::make_shared<FutureResult<T>>(std::move(result));
        if (!detail::executeOnLoop(*state->loop, [state, carried] { state->complete(std::move(*carried)); })) {
            // The loop is gone: nobody can be waiting for its thread any more.
            state->complete(std::move(*carried));
        }
    }

    std::shared_ptr<detail::FutureState<T>> state_;
};

}  // namespace ferrylink::foundation
