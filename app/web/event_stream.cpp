#include "app/web/event_stream.h"

namespace ferrylink::app {

void EventStream::push(std::string text) {
    {
        std::lock_guard lock(mutex_);
        if (closed_) {
            return;
        }
        queued_.push_back(std::move(text));
    }
    changed_.notify_all();
}

void EventStream::close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

std::optional<std::string> EventStream::take(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [this] { return closed_ || !queued_.empty(); });
    if (queued_.empty()) {
        if (closed_) {
            return std::nullopt;
        }
        return std::string();
    }
    std::string text;
    for (auto& part : queued_) {
        text += part;
    }
    queued_.clear();
    return text;
}

}  // namespace ferrylink::app
