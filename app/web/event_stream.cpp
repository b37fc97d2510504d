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

namespace ferrylink::app {

namespace {
// How often a stream's thread looks whether its peer is still there.
constexpr std::chrono::milliseconds kStreamPoll{250};
}  // namespace

void sendEventStream(httplib::Response& response, std::shared_ptr<EventStream> stream,
                     std::chrono::milliseconds keepalive, std::function<void()> onClosed) {
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Accel-Buffering", "no");
    auto lastWrite = std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
    // The library asks for more after each call, and checks between calls
    // that the peer is still there; the wait bounds how late it notices.
    response.set_chunked_content_provider(
        "text/event-stream",
        [stream, lastWrite, keepalive](size_t, httplib::DataSink& sink) {
            auto text = stream->take(kStreamPoll);
            if (!text) {
                sink.done();
                return true;
            }
            auto now = std::chrono::steady_clock::now();
            if (text->empty()) {
                if (now - *lastWrite < keepalive) {
                    return true;
                }
                text = ": keepalive\n\n";
            }
            *lastWrite = now;
            return sink.write(text->data(), text->size());
        },
        [onClosed = std::move(onClosed)](bool) { onClosed(); });
}

}  // namespace ferrylink::app
