#pragma once

#include <memory>
#include <string>

#include "raknet/connection_listener.h"

namespace ferrylink::bridge {

class PortalHop;

// PortalHop's ear on the transport. Called on the event loop's thread, each
// operation copies its arguments and queues the work on the server's
// serverQueue, so the loop never waits for a session.
//
// It holds its server strongly; the server lets go of it at its close step.
class TransferListener : public raknet::ConnectionListener {
public:
    explicit TransferListener(std::shared_ptr<PortalHop> server) : server(std::move(server)) {}

    void onEncapsulated(foundation::ByteBuffer payload, const foundation::SocketAddress& address) override;
    void onCloseConnection(const foundation::SocketAddress& address, const std::string& reason) override;
    void onOpenConnection(const std::shared_ptr<raknet::Connection>& connection) override;

    const std::shared_ptr<PortalHop> server;
};

}  // namespace ferrylink::bridge
