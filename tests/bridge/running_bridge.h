#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "bridge/portal_hop.h"
#include "foundation/event_loop.h"
#include "raknet/server_info.h"
#include "support/recording_printer.h"

namespace ferrylink::testing {

// Counts the calls of a close handler and lets a test wait for the first.
class CloseCounter {
public:
    void closed() {
        {
            std::lock_guard lock(mutex_);
            ++count_;
        }
        changed_.notify_all();
    }
    int count() const {
        std::lock_guard lock(mutex_);
        return count_;
    }
    // Bounded only against a hang.
    bool waitClosed(std::chrono::milliseconds timeout = std::chrono::seconds(20)) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [this] { return count_ > 0; });
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    int count_ = 0;
};

// A PortalHop on 127.0.0.1 and a free port, with its lines recorded.
struct RunningBridge {
    explicit RunningBridge(std::string transferHost = "localhost", int transferPort = 19132, bool oneTransfer = false,
                           bool resolveIp = true, int hostPort = 0)
        : group(std::make_shared<foundation::MultiThreadedEventLoopGroup>(1)),
          printer(std::make_shared<RecordingPrinter>()),
          info(advert()) {
        auto counter = closes;
        hop = bridge::PortalHop::make(transferHost, transferPort, oneTransfer, [counter] { counter->closed(); }, hostPort,
                                      resolveIp, "127.0.0.1");
        hop->setPrinter(printer);
        outcome = hop->start(group, info);
    }

    ~RunningBridge() {
        if (hop->isRunning()) {
            hop->stop();
        }
        // A run that bound nothing has ended without a close step.
        if (outcome.listening) {
            closes->waitClosed();
        }
        group->syncShutdownGracefully();
    }

    static std::shared_ptr<raknet::ServerInfo> advert() {
        return std::make_shared<raknet::ServerInfo>("Ferrylink", "Join me!", 560, "1.19.50", 0, 99, "Creative", 0);
    }

    int port() const { return *hop->localAddress()->port(); }

    std::shared_ptr<foundation::EventLoopGroup> group;
    std::shared_ptr<RecordingPrinter> printer;
    std::shared_ptr<raknet::ServerInfo> info;
    std::shared_ptr<CloseCounter> closes = std::make_shared<CloseCounter>();
    std::shared_ptr<bridge::PortalHop> hop;
    bridge::StartOutcome outcome;
};

}  // namespace ferrylink::testing
