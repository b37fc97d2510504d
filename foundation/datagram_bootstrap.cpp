#include "foundation/datagram_bootstrap.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace ferrylink::foundation {

namespace {

// Where the bridge was first written, SO_REUSEADDR on a datagram socket lets
// it bind again at once after a restart and still refuses a second live
// socket on the same address and port. On Linux it lets a second live UDP
// socket share the port and take its datagrams; and a closed UDP socket
// leaves nothing behind that would block a rebind. So the option is kept in
// that first sense by not passing it on.
constexpr SocketOption kReuseAddress{SOL_SOCKET, SO_REUSEADDR};

}  // namespace

void ChannelOptions::set(SocketOption option, int value) {
    for (auto& [key, existing] : values) {
        if (key == option) {
            existing = value;
            return;
        }
    }
    values.emplace_back(option, value);
}

DatagramBootstrap::DatagramBootstrap(std::shared_ptr<EventLoopGroup> group) : group_(std::move(group)) {}

DatagramBootstrap& DatagramBootstrap::channelOption(SocketOption option, int value) {
    options_.set(option, value);
    return *this;
}

DatagramBootstrap& DatagramBootstrap::receiveBufferSize(int bytes) {
    receiveBufferBytes_ = bytes;
    return *this;
}

DatagramBootstrap& DatagramBootstrap::channelInitializer(Initializer initializer) {
    initializer_ = std::move(initializer);
    return *this;
}

EventLoopFuture<std::shared_ptr<Channel>> DatagramBootstrap::bind(const std::string& host, int port) {
    auto loop = group_->next();
    auto promise = loop->makePromise<std::shared_ptr<Channel>>();
    std::optional<SocketAddress> address;
    try {
        address = SocketAddress::makeResolving(host, port);
    } catch (...) {
        promise.fail(std::current_exception());
        return promise.futureResult();
    }

    auto work = [loop, promise, address = *address, options = options_, initializer = initializer_,
                 receiveBufferBytes = receiveBufferBytes_] {
        int fd = ::socket(address.protocol(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            promise.fail(IOError(errno, "socket"));
            return;
        }
        for (const auto& [option, value] : options.values) {
            if (option == kReuseAddress) {
                continue;
            }
            if (::setsockopt(fd, option.level, option.name, &value, sizeof(value)) != 0) {
                int errorNumber = errno;
                ::close(fd);
                promise.fail(IOError(errorNumber, "setsockopt"));
                return;
            }
        }
        // A size the kernel can't give in full is no reason to fail: the
        // queue is then what net.core.rmem_max allows.
        if (receiveBufferBytes > 0 &&
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBufferBytes, sizeof(receiveBufferBytes)) != 0) {
            (void)::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof(receiveBufferBytes));
        }
        auto channel = std::make_shared<Channel>(loop, fd);
        auto finish = [channel, promise, address, fd] {
            if (::bind(fd, address.sockaddrPointer(), address.sockaddrLength()) != 0) {
                promise.fail(IOError(errno, "bind"));
                // Closing drops the handler again, and with it whatever it holds.
                channel->close();
                return;
            }
            channel->activate();
            promise.succeed(channel);
        };
        if (!initializer) {
            finish();
            return;
        }
        initializer(channel).whenComplete([finish, promise, channel](const FutureResult<void>& result) {
            if (result.succeeded()) {
                finish();
            } else {
                channel->close();
                promise.fail(result.error);
            }
        });
    };
    if (!loop->execute(std::move(work))) {
        promise.fail(std::make_exception_ptr(std::runtime_error("The event loop has shut down")));
    }
    return promise.futureResult();
}

}  // namespace ferrylink::foundation
