#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/event_loop.h"
#include "foundation/socket_address.h"

namespace ferrylink::raknet {
class Printer;
}

namespace ferrylink::app {

// The advert a console sees in its Friends tab.
struct AdvertValues {
    std::string motd;
    std::string name;
    int64_t protocolVersion = 0;
    std::string version;
    int64_t currentPlayers = 0;
    int64_t maxPlayers = 0;
    std::string gamemode;
    int64_t serverId = 0;

    bool operator==(const AdvertValues&) const = default;
};

// What Run advertises.
AdvertValues ferrylinkAdvert();

// What one run of the bridge is built with.
struct BridgeArguments {
    std::string transferHost;
    int64_t transferPort = 19132;
    bool oneTransfer = false;
    // Called once the bridge has closed, on the bridge's own queue.
    std::function<void()> onCloseHandler;
    int hostPort = 19132;
    bool resolveIp = true;
    // The local address to listen on.
    std::string hostIp = "0.0.0.0";
};

// The controller's view of one run of the bridge: one object per start,
// never restarted.
class BridgeServer {
public:
    virtual ~BridgeServer() = default;

    virtual const std::string& transferHost() const = 0;
    virtual int64_t transferPort() const = 0;

    // Before start().
    virtual void setPrinter(std::shared_ptr<raknet::Printer> printer) = 0;
    // Binds and begins answering consoles; blocks the caller during the bind.
    // Gives nothing when the bridge listens, else why it doesn't, as one
    // sentence for the user; such a bridge has ended and calls no handler.
    virtual std::optional<std::string> start(std::shared_ptr<foundation::EventLoopGroup> group,
                                             const AdvertValues& advert) = 0;
    // The address the bridge is bound to, once start() has bound it.
    virtual std::optional<foundation::SocketAddress> localAddress() const = 0;
    // True until the bridge has been asked to shut down. Any thread.
    virtual bool isRunning() const = 0;
    // Returns at once; the bridge closes on its own queue and then calls its
    // onCloseHandler, as it does when its socket closes by itself. Only while
    // isRunning().
    virtual void stop() = 0;
};

using BridgeFactory = std::function<std::shared_ptr<BridgeServer>(BridgeArguments)>;

// Builds the real bridge. Empty in a build without the bridge subsystem.
BridgeFactory portalHopFactory();

}  // namespace ferrylink::app
