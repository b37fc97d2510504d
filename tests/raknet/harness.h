#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/event_loop.h"
#include "raknet/connection.h"
#include "raknet/connection_listener.h"
#include "raknet/listener.h"
#include "raknet/printer.h"
#include "raknet/server_info.h"
#include "support/recording_printer.h"

namespace ferrylink::raknet::testing {

inline constexpr std::chrono::seconds WAIT_LIMIT{5};

using RecordingPrinter = ferrylink::testing::RecordingPrinter;

// The transport's callbacks in the order they came.
class RecordingConnectionListener : public ConnectionListener {
public:
    struct Event {
        enum class Kind { encapsulated, close, open } kind;
        foundation::SocketAddress address;
        std::string reason;                       // close
        std::vector<uint8_t> payload;             // encapsulated, from the reader on
        uint32_t readerIndex = 0;                 // encapsulated
        std::shared_ptr<Connection> connection;   // open
    };

    void onEncapsulated(foundation::ByteBuffer payload, const foundation::SocketAddress& address) override {
        auto view = payload.readableView();
        record(Event{Event::Kind::encapsulated, address, {}, {view.begin(), view.end()}, payload.readerIndex(), {}});
    }
    void onCloseConnection(const foundation::SocketAddress& address, const std::string& reason) override {
        record(Event{Event::Kind::close, address, reason, {}, 0, {}});
    }
    void onOpenConnection(const std::shared_ptr<Connection>& connection) override {
        record(Event{Event::Kind::open, connection->address, {}, {}, 0, connection});
    }

    std::vector<Event> events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }
    std::vector<Event> of(Event::Kind kind) const {
        std::vector<Event> found;
        for (auto& event : events()) {
            if (event.kind == kind) {
                found.push_back(event);
            }
        }
        return found;
    }
    std::vector<std::vector<uint8_t>> payloads() const {
        std::vector<std::vector<uint8_t>> found;
        for (auto& event : of(Event::Kind::encapsulated)) {
            found.push_back(event.payload);
        }
        return found;
    }
    // Waits until `count` events of `kind` have come.
    bool waitFor(Event::Kind kind, size_t count = 1) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, WAIT_LIMIT, [&] {
            return static_cast<size_t>(std::count_if(events_.begin(), events_.end(),
                                                     [&](const Event& e) { return e.kind == kind; })) >= count;
        });
    }

private:
    void record(Event event) {
        std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
        changed_.notify_all();
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Event> events_;
};

using EventKind = RecordingConnectionListener::Event::Kind;

inline std::shared_ptr<ServerInfo> runAdvert() {
    return std::make_shared<ServerInfo>("Ferrylink", "Join me!", 560, "1.19.50", 0, 99, "Creative", 0);
}

// Runs `work` on `loop`'s thread and gives its result to the test thread.
template <typename Work>
auto onLoop(const std::shared_ptr<foundation::EventLoop>& loop, Work work) -> decltype(work()) {
    using Result = decltype(work());
    std::promise<Result> done;
    auto result = done.get_future();
    loop->execute([&] {
        if constexpr (std::is_void_v<Result>) {
            work();
            done.set_value();
        } else {
            done.set_value(work());
        }
    });
    return result.get();
}

// A Listener bound on loopback port 0, with recording printer and callbacks.
class LoopbackServer {
public:
    explicit LoopbackServer(const std::string& host = "127.0.0.1") {
        listener->printer = printer;
        closeFuture = listener->bind(events, info, host, 0, group);
        if (listener->channel) {
            address = listener->channel->localAddress();
        }
    }
    ~LoopbackServer() {
        listener->close();
        group->syncShutdownGracefully();
    }

    bool bound() const { return address.has_value(); }
    const std::shared_ptr<foundation::EventLoop>& loop() const { return listener->channel->eventLoop(); }

    template <typename Work>
    auto onLoop(Work work) -> decltype(work()) {
        return testing::onLoop(loop(), std::move(work));
    }
    size_t connectionCount() {
        return onLoop([this] { return listener->connections().size(); });
    }
    // The connection of `peer`, read on the loop; null when there is none.
    std::shared_ptr<Connection> connectionOf(const foundation::SocketAddress& peer) {
        return onLoop([&]() -> std::shared_ptr<Connection> {
            auto found = listener->connections().find(peer);
            return found == listener->connections().end() ? nullptr : found->second;
        });
    }
    // Waits until the table holds `count` connections.
    bool waitForConnections(size_t count) {
        auto deadline = std::chrono::steady_clock::now() + WAIT_LIMIT;
        while (std::chrono::steady_clock::now() < deadline) {
            if (connectionCount() == count) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    std::shared_ptr<foundation::EventLoopGroup> group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    std::shared_ptr<RecordingPrinter> printer = std::make_shared<RecordingPrinter>();
    std::shared_ptr<RecordingConnectionListener> events = std::make_shared<RecordingConnectionListener>();
    std::shared_ptr<ServerInfo> info = runAdvert();
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    std::optional<foundation::EventLoopFuture<void>> closeFuture;
    std::optional<foundation::SocketAddress> address;
};

}  // namespace ferrylink::raknet::testing
