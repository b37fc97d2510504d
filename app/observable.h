#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "app/main_thread.h"

namespace ferrylink::app {

// One published field of a model. The value belongs to the main queue: it is
// read and written there only, and every write tells each subscriber, on the
// main queue, at once and in the order they subscribed. Subscribing and
// unsubscribing are safe from any thread, also from inside a notification.
template <typename T>
class Observable {
public:
    using Subscriber = std::function<void(const T&)>;
    using Subscription = uint64_t;

    Observable() = default;
    explicit Observable(T initial) : value_(std::move(initial)) {}
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    // Main queue only.
    const T& get() const {
        assertMainThread();
        return value_;
    }

    // Main queue only. Every write notifies, also one of an equal value: a
    // screen re-draws, as it would for any assignment of the field.
    void set(T value) {
        assertMainThread();
        value_ = std::move(value);
        notify();
    }

    // Sets the value while the model is being built, before anyone can have
    // subscribed: no notification, no thread check.
    void setInitial(T value) { value_ = std::move(value); }
    // Reads the value where no queue can be asked for, as in a destructor.
    const T& getUnchecked() const { return value_; }

    // Changes the value in place and notifies once. Main queue only.
    template <typename Change>
    void modify(Change&& change) {
        assertMainThread();
        std::forward<Change>(change)(value_);
        notify();
    }

    Subscription subscribe(Subscriber subscriber) {
        std::lock_guard lock(subscribersMutex_);
        auto id = ++lastSubscription_;
        subscribers_.emplace(id, std::make_shared<Subscriber>(std::move(subscriber)));
        return id;
    }

    void unsubscribe(Subscription subscription) {
        std::lock_guard lock(subscribersMutex_);
        subscribers_.erase(subscription);
    }

private:
    void notify() {
        // Called without the lock so a subscriber may (un)subscribe; the copy
        // keeps each callable alive while it runs.
        std::map<Subscription, std::shared_ptr<Subscriber>> current;
        {
            std::lock_guard lock(subscribersMutex_);
            current = subscribers_;
        }
        for (auto& [id, subscriber] : current) {
            (*subscriber)(value_);
        }
    }

    T value_{};
    std::mutex subscribersMutex_;
    std::map<Subscription, std::shared_ptr<Subscriber>> subscribers_;
    Subscription lastSubscription_ = 0;
};

// A flag that presents an alert: the controller toggles it, the screen that
// presents the alert resets it to false.
using AlertFlag = Observable<bool>;

}  // namespace ferrylink::app
