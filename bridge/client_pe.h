#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/dispatch_queue.h"
#include "foundation/event_loop.h"
#include "raknet/client.h"
#include "raknet/printer.h"
#include "raknet/server_info.h"

namespace ferrylink::bridge {

// Asks remote servers for their advert: owns one RakNet Client on a local
// UDP socket and turns ping(host, port) into the ServerInfo of the answer.
//
//   auto probe = std::make_shared<ClientPe>(0);
//   probe->start(group);
//   auto info = probe->ping("127.0.0.1", 19132).wait();   // off the loop
//   probe->stop();
//
// A host that can't be resolved fails the future at once with the
// raknet::TimeoutError "msg", like a ping that got no answer; a silent server
// fails it after 7 seconds with "Ping timeout".
//
// Threads: start() and ping() run on the caller's thread; stop()'s work runs
// on serverQueue; futures complete on the event loop.
class ClientPe : public std::enable_shared_from_this<ClientPe> {
public:
    using StandardOutput = raknet::StandardOutputPrinter;

    // The letters "clientrpe" are part of the name, as it has always been.
    static constexpr const char* serverQueueLabel = "org.norvane.clientrpe.serial.queue";

    // `hostPort` 0 lets the system choose. Made with std::make_shared.
    explicit ClientPe(int hostPort, std::string hostIp = "0.0.0.0");

    // Binds the local socket; blocks while it is bound. A failed bind is not
    // retried: pings that follow go nowhere.
    void start(std::shared_ptr<foundation::EventLoopGroup> group);
    // After start (before it, a fatal fault).
    foundation::EventLoopFuture<std::shared_ptr<raknet::ServerInfo>> ping(const std::string& host, int port);
    // Returns at once; closes the client on serverQueue and prints
    // "Server shutting down!". A second stop is a fatal fault.
    void stop();
    bool isRunning() const { return !shutdown.load(); }

    void setPrinter(std::shared_ptr<raknet::Printer> printer);
    std::shared_ptr<raknet::Printer> printer() const;
    std::shared_ptr<raknet::Client> client() const;

    const std::string hostIp;
    const int hostPort;
    const foundation::DispatchQueue serverQueue;

private:
    // The client is replaced by start() and emptied by stop()'s block while
    // pings may read it from other threads.
    mutable std::mutex mutex_;
    std::shared_ptr<raknet::Client> client_;
    std::shared_ptr<foundation::EventLoopGroup> group_;
    std::shared_ptr<raknet::Printer> printer_ = std::make_shared<StandardOutput>();
    std::atomic<bool> shutdown{false};
};

}  // namespace ferrylink::bridge
