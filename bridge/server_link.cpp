#include "bridge/server_link.h"

#include <mutex>

#include "foundation/fatal.h"

namespace ferrylink::bridge {

namespace {
// Written from the thread that builds a server, read from every server's
// queue, so the slot itself is guarded.
std::mutex currentMutex;
std::shared_ptr<ServerLink> currentServer;
}  // namespace

std::shared_ptr<ServerLink> ServerLink::current() {
    std::lock_guard lock(currentMutex);
    if (!currentServer) {
        foundation::fatalFault();
    }
    return currentServer;
}

void ServerLink::install(std::shared_ptr<ServerLink> server) {
    std::shared_ptr<ServerLink> previous;
    std::lock_guard lock(currentMutex);
    previous = std::move(currentServer);
    currentServer = std::move(server);
}

foundation::ByteBuffer ServerLink::freshBuffer() {
    return foundation::AdaptiveRecvByteBufferAllocator{}.buffer(current()->channelAllocator());
}

}  // namespace ferrylink::bridge
