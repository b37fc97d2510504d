#include "bridge/transfer_listener.h"

#include "bridge/portal_hop.h"

namespace ferrylink::bridge {

void TransferListener::onEncapsulated(foundation::ByteBuffer payload, const foundation::SocketAddress& address) {
    server->serverQueue.async(
        [server = server, payload = std::move(payload), address]() mutable { server->receive(std::move(payload), address); });
}

void TransferListener::onCloseConnection(const foundation::SocketAddress& address, const std::string& reason) {
    server->serverQueue.async([server = server, address, reason] { server->closeConnection(address, reason); });
}

void TransferListener::onOpenConnection(const std::shared_ptr<raknet::Connection>& connection) {
    server->serverQueue.async([server = server, connection] { server->openConnection(connection); });
}

}  // namespace ferrylink::bridge
