#pragma once

#include <memory>
#include <string_view>

#include "foundation/byte_buffer.h"

namespace ferrylink::bridge {

// What packets and sessions reach of the running server without holding it:
// its console and the allocator of its bound socket. The server built last is
// the current one; PortalHop installs itself from its constructor and nothing
// ever clears it, so a session of an older server logs through the newer one.
class ServerLink {
public:
    virtual ~ServerLink() = default;

    // One console line, without its line end.
    virtual void print(std::string_view line) = 0;
    // The allocator of the listener's bound channel. Without a listener or a
    // channel that is a fatal fault.
    virtual foundation::ByteBufferAllocator channelAllocator() = 0;

    // The current server; a fatal fault when none was ever installed.
    static std::shared_ptr<ServerLink> current();
    // Replaces the current server (a null pointer clears it, for tests).
    static void install(std::shared_ptr<ServerLink> server);

    // A fresh empty buffer shaped as the receive allocator hands them out,
    // 2048 bytes of capacity, from the current server's channel.
    static foundation::ByteBuffer freshBuffer();
};

}  // namespace ferrylink::bridge
