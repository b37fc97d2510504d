#pragma once

#include <memory>
#include <string>

#include "foundation/byte_buffer.h"
#include "foundation/socket_address.h"

namespace ferrylink::raknet {

class Connection;

// The transport's way up. Every operation is called on the event loop's
// thread and must not block: implementations move the work to their own queue.
class ConnectionListener {
public:
    virtual ~ConnectionListener() = default;

    // One complete game payload (first byte 0x80 or above), reader at 0 so the
    // id byte is part of it.
    virtual void onEncapsulated(foundation::ByteBuffer payload, const foundation::SocketAddress& address) = 0;
    // The connection of `address` is being removed; reason is "timeout",
    // "client disconnect" or "shutdown", or, for a peer that was dropped (bytes
    // that can't be read, a limit reached, Connection::disconnect), the reason
    // given there. Comes once per removal call, also for peers whose handshake
    // never ended.
    virtual void onCloseConnection(const foundation::SocketAddress& address, const std::string& reason) = 0;
    // The connected handshake has ended: the peer may now send game payloads.
    virtual void onOpenConnection(const std::shared_ptr<Connection>& connection) = 0;
};

}  // namespace ferrylink::raknet
