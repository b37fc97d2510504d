#pragma once

#include <chrono>
#include <optional>

namespace ferrylink::bridge {

// A bridge's note that it answers consoles on a UDP port, visible to every
// process in this network namespace: an abstract Unix socket named after
// the port. The kernel drops it with the process, so a bridge that died
// leaves no stale note behind.
//
// It tells a port taken by another bridge, which must not be shared, from
// one taken by some other program, which the bridge steps aside from.
class PortClaim {
public:
    enum class Holder { none, thisProcess, otherProcess };

    // Claims `port` while the object lives; nothing when a bridge holds it.
    // Where the system offers no abstract sockets the claim is empty and
    // every port looks free.
    static std::optional<PortClaim> take(int port);
    static Holder holderOf(int port);
    // Blocks until this process holds no claim of `port`, or `patience` has
    // passed; true in the former case.
    static bool waitUntilReleased(int port, std::chrono::milliseconds patience);

    PortClaim(PortClaim&& other) noexcept;
    PortClaim& operator=(PortClaim&& other) noexcept;
    PortClaim(const PortClaim&) = delete;
    PortClaim& operator=(const PortClaim&) = delete;
    ~PortClaim();

private:
    PortClaim(int port, int fd);
    void release();

    int port_;
    int fd_;
};

}  // namespace ferrylink::bridge
