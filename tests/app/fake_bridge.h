#pragma once

// A stand-in for the bridge that records what the controller asks of it and
// closes, when stopped, the way the real one does: on a queue of its own,
// then through its onCloseHandler.

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/bridge_server.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app::testing {

class FakeBridge : public BridgeServer {
public:
    FakeBridge(BridgeArguments arguments, std::shared_ptr<std::vector<std::string>> events,
               std::shared_ptr<std::atomic<bool>> closeOnStop)
        : arguments(std::move(arguments)), events_(std::move(events)), closeOnStop_(closeOnStop) {
        events_->push_back("construct");
    }

    const std::string& transferHost() const override { return arguments.transferHost; }
    int64_t transferPort() const override { return arguments.transferPort; }
    void setPrinter(std::shared_ptr<raknet::Printer> newPrinter) override {
        events_->push_back("printer");
        printer = std::move(newPrinter);
    }
    std::optional<std::string> start(std::shared_ptr<foundation::EventLoopGroup> startGroup,
                                     const AdvertValues& startAdvert) override {
        events_->push_back("start");
        group = std::move(startGroup);
        advert = startAdvert;
        return std::nullopt;
    }
    std::optional<foundation::SocketAddress> localAddress() const override { return std::nullopt; }
    bool isRunning() const override { return running_.load(); }
    void stop() override {
        events_->push_back("stop");
        ++stops;
        running_ = false;
        if (*closeOnStop_) {
            close();
        }
    }
    // The close step, on the bridge's own queue.
    void close() {
        queue_.async([handler = arguments.onCloseHandler] { handler(); });
    }

    BridgeArguments arguments;
    std::shared_ptr<raknet::Printer> printer;
    std::shared_ptr<foundation::EventLoopGroup> group;
    AdvertValues advert;
    int stops = 0;

private:
    std::shared_ptr<std::vector<std::string>> events_;
    std::shared_ptr<std::atomic<bool>> closeOnStop_;
    std::atomic<bool> running_{true};
    foundation::DispatchQueue queue_{"fake.bridge.queue"};
};

// Builds FakeBridges and keeps each one it built.
struct FakeBridgeFactory {
    std::shared_ptr<std::vector<std::string>> events = std::make_shared<std::vector<std::string>>();
    std::shared_ptr<std::vector<std::shared_ptr<FakeBridge>>> built =
        std::make_shared<std::vector<std::shared_ptr<FakeBridge>>>();
    // Whether a stopped bridge closes by itself, as the real one does.
    std::shared_ptr<std::atomic<bool>> closeOnStop = std::make_shared<std::atomic<bool>>(true);

    BridgeFactory factory() {
        return [events = events, built = built, closeOnStop = closeOnStop](BridgeArguments arguments) {
            auto bridge = std::make_shared<FakeBridge>(std::move(arguments), events, closeOnStop);
            built->push_back(bridge);
            return bridge;
        };
    }
};

}  // namespace ferrylink::app::testing
