#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
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

}  // namespace ferrylink::app
