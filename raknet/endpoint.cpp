#include "raknet/endpoint.h"

#include <sys/socket.h>

#include <optional>

#include "foundation/datagram_bootstrap.h"
#include "foundation/socket_address.h"

namespace ferrylink::raknet::detail {

bool bindEndpoint(const std::shared_ptr<foundation::EventLoopGroup>& group, const std::string& host, int port,
                  Printer& printer, HandlerFactory makeHandler, int receiveBufferBytes) {
    // Resolved here, on the caller's thread, so that a resolver error is
    // made, caught and dropped on one thread; the bootstrap then gets the
    // numeric form and has nothing left to look up.
    std::optional<foundation::SocketAddress> address;
    try {
        address = foundation::SocketAddress::makeResolving(host, port);
    } catch (const foundation::SocketAddressError& error) {
        if (error.code == foundation::SocketAddressError::Code::unknown && error.host == host && error.port == port) {
            printer.print("unavaliable: " + host + " " + std::to_string(port));
        } else {
            printer.print(error.what());
        }
        return false;
    }
    // Held past the catch below: the loop may let go of the failed future's
    // error at any time, and this thread must be the one that reads it last.
    auto bound = foundation::DatagramBootstrap(group)
                     .channelOption(foundation::SocketOption{SOL_SOCKET, SO_REUSEADDR}, 1)
                     .receiveBufferSize(receiveBufferBytes)
                     .channelInitializer(
                         [makeHandler = std::move(makeHandler)](const std::shared_ptr<foundation::Channel>& made) {
                             return made->pipeline().addHandler(makeHandler(made));
                         })
                     .bind(*address->ipAddress(), port);
    try {
        bound.wait();
    } catch (...) {
        printer.print(foundation::errorDescription(std::current_exception()));
        return false;
    }
    return true;
}

}  // namespace ferrylink::raknet::detail
