#pragma once

#include <functional>
#include <memory>
#include <string>

#include "foundation/channel.h"
#include "foundation/event_loop.h"
#include "raknet/printer.h"

// How Listener and Client open their socket. Internal to the transport.
namespace ferrylink::raknet::detail {

// Gives the handler for a new channel; called on the loop before the socket
// is bound, so the caller can keep the channel before any datagram arrives.
using HandlerFactory =
    std::function<std::shared_ptr<foundation::ChannelInboundHandler>(const std::shared_ptr<foundation::Channel>&)>;

// Binds host:port with SO_REUSEADDR and, when `receiveBufferBytes` isn't 0,
// a receive queue of that size, blocking the caller until the socket stands.
// On failure prints one line: "unavaliable: host port" when the name or port
// can't be resolved, otherwise the error's own text; then gives false.
bool bindEndpoint(const std::shared_ptr<foundation::EventLoopGroup>& group, const std::string& host, int port,
                  Printer& printer, HandlerFactory makeHandler, int receiveBufferBytes = 0);

}  // namespace ferrylink::raknet::detail
