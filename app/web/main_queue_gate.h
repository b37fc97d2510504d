#pragma once

#include <atomic>
#include <exception>
#include <future>
#include <utility>

#include "app/web/json_http.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

// How a request's thread reaches the app's models: it queues its work on the
// main queue and waits for it. Once closed, work is refused with a 503
// instead, so that a server that stops never waits for a queue that has gone.
class MainQueueGate {
public:
    // Runs `work` on the main queue and waits for it; rethrows what it threw.
    // Throws http::HttpError 503, without running it, once closed.
    template <typename Work>
    void run(Work&& work) {
        if (closed_) {
            throw unavailable();
        }
        std::promise<bool> done;
        foundation::DispatchQueue::main().async([this, &work, &done] {
            if (closed_) {
                done.set_value(false);
                return;
            }
            try {
                work();
                done.set_value(true);
            } catch (...) {
                done.set_exception(std::current_exception());
            }
        });
        if (!done.get_future().get()) {
            throw unavailable();
        }
    }

    void close() { closed_ = true; }
    bool closed() const { return closed_; }

private:
    static http::HttpError unavailable() { return http::HttpError{503, "ferrylink is shutting down"}; }

    std::atomic<bool> closed_{false};
};

}  // namespace ferrylink::app
