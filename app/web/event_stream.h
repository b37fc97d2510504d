#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace ferrylink::app {

// The text waiting for one open event stream. The main queue pushes whole
// events; the connection's thread takes them out and writes them. Safe from
// any thread.
class EventStream {
public:
    // Queues the text of one event. Ignored once closed.
    void push(std::string text);

    // Ends the stream once the queued text is written.
    void close();

    // Waits up to `timeout` for queued text and takes all of it: an empty
    // string when nothing came, nothing once the stream is closed and drained.
    std::optional<std::string> take(std::chrono::milliseconds timeout);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> queued_;
    bool closed_ = false;
};

// Answers with `stream` as text/event-stream for as long as both ends stay:
// what is pushed is written as it comes, a comment line goes out after
// `keepalive` of silence, and `onClosed` runs once the response has ended,
// on the connection's thread.
void sendEventStream(httplib::Response& response, std::shared_ptr<EventStream> stream,
                     std::chrono::milliseconds keepalive, std::function<void()> onClosed);

}  // namespace ferrylink::app
