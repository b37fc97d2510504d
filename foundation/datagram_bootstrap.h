#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/channel.h"
#include "foundation/event_loop.h"

namespace ferrylink::foundation {

// A socket option key: level and name, as setsockopt takes them.
struct SocketOption {
    int level;
    int name;
    friend bool operator==(const SocketOption&, const SocketOption&) = default;
};

struct ChannelOptions {
    std::vector<std::pair<SocketOption, int>> values;
    // A key that is present already has its value replaced.
    void set(SocketOption option, int value);
};

// Builds and binds datagram channels on the group's next loop.
class DatagramBootstrap {
public:
    using Initializer = std::function<EventLoopFuture<void>(const std::shared_ptr<Channel>&)>;

    explicit DatagramBootstrap(std::shared_ptr<EventLoopGroup> group);

    DatagramBootstrap& channelOption(SocketOption option, int value);
    // Asks for a socket receive queue of `bytes` (0: the system's default):
    // SO_RCVBUFFORCE where the process may, else SO_RCVBUF, which the kernel
    // holds to net.core.rmem_max.
    DatagramBootstrap& receiveBufferSize(int bytes);
    // Given the new channel before binding, on the loop's thread.
    DatagramBootstrap& channelInitializer(Initializer initializer);
    // Resolves `host` (blocking the caller), makes a socket of the matching
    // family, applies the options, runs the initializer and binds. SO_REUSEADDR
    // means a quick rebind after a restart, never two live sockets on one
    // port: Linux gives the former without it, so it is not set.
    EventLoopFuture<std::shared_ptr<Channel>> bind(const std::string& host, int port);

private:
    std::shared_ptr<EventLoopGroup> group_;
    ChannelOptions options_;
    int receiveBufferBytes_ = 0;
    Initializer initializer_;
};

}  // namespace ferrylink::foundation
