#include <chrono>
#include <future>
#include <iostream>
#include <memory>
#include <optional>

#include "bridge/client_pe.h"
#include "cli/commands.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"
#include "raknet/printer.h"

namespace ferrylink::cli {

namespace {

using Clock = std::chrono::steady_clock;

// The probe's own console lines are not for the user of this command.
class SilentPrinter : public raknet::Printer {
public:
    void print(const std::string&) override {}
};

struct Pong {
    std::shared_ptr<raknet::ServerInfo> info;
    Clock::duration roundTrip;
};

// One ping to a numeric address, answered or not within `patience`. A ping
// gives up by itself after 7 seconds, so a longer patience asks again.
std::optional<Pong> askUntil(bridge::ClientPe& probe, const std::string& address, int port, Clock::time_point deadline) {
    while (Clock::now() < deadline) {
        auto answer = std::make_shared<std::promise<std::optional<Pong>>>();
        auto arrived = answer->get_future();
        auto sent = Clock::now();
        probe.ping(address, port).whenComplete([answer, sent](const auto& result) {
            answer->set_value(result.error ? std::nullopt : std::optional<Pong>(Pong{*result.value, Clock::now() - sent}));
        });
        if (arrived.wait_until(deadline) != std::future_status::ready) {
            return std::nullopt;
        }
        if (auto pong = arrived.get()) {
            return pong;
        }
    }
    return std::nullopt;
}

}  // namespace

int pingServer(const PingOptions& options) {
    auto deadline = Clock::now() + std::chrono::milliseconds(options.timeoutMs);
    // Resolved here, so that a name that doesn't resolve is told apart from
    // a server that doesn't answer.
    std::string address;
    try {
        address = *foundation::SocketAddress::makeResolving(options.host, options.port).ipAddress();
    } catch (const foundation::SocketAddressError&) {
        std::cerr << "ferrylink: " << options.host << ": name does not resolve" << std::endl;
        return 1;
    }
    std::cout << "address:   " << address << ":" << options.port << std::endl;

    auto group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    auto probe = std::make_shared<bridge::ClientPe>(0);
    probe->setPrinter(std::make_shared<SilentPrinter>());
    probe->start(group);
    auto pong = askUntil(*probe, address, options.port, deadline);
    probe->stop();
    group->syncShutdownGracefully();

    if (!pong) {
        std::cerr << "ferrylink: no answer from " << address << ":" << options.port << " within "
                  << options.timeoutMs << " ms: closed port or no server" << std::endl;
        return 1;
    }
    auto micros = std::chrono::duration_cast<std::chrono::microseconds>(pong->roundTrip).count();
    const auto& info = *pong->info;
    std::cout << "time:      " << micros / 1000 << "." << (micros % 1000) / 100 << " ms\n"
              << "motd:      " << info.motd << "\n"
              << "name:      " << info.name << "\n"
              << "version:   " << info.version << "\n"
              << "protocol:  " << info.protocolVersion << "\n"
              << "players:   " << info.currentPlayers << "/" << info.maxPlayers << "\n"
              << "game mode: " << info.gamemode << std::endl;
    return 0;
}

}  // namespace ferrylink::cli
