#include "bridge/port_claim.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace ferrylink::bridge {

namespace {

// The ports this process has claimed, so that a bridge of this process can
// wait for an earlier one that is still closing its socket.
struct LocalClaims {
    std::mutex mutex;
    std::condition_variable released;
    std::multiset<int> ports;
};

// Never destroyed: a claim may be let go of on another thread while the
// process exits.
LocalClaims& localClaims() {
    static auto* claims = new LocalClaims;
    return *claims;
}

enum class Outcome { claimed, held, unavailable };

// Binds the claim's name for `port`: a socket in `fd`, or why not.
Outcome bindName(int port, int& fd) {
    fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return Outcome::unavailable;
    }
    // A leading NUL puts the name in the abstract namespace: no file, and
    // gone with the last socket bound to it.
    const std::string name = std::string(1, '\0') + "ferrylink/udp/" + std::to_string(port);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0) {
        return Outcome::claimed;
    }
    const int error = errno;
    ::close(fd);
    fd = -1;
    return error == EADDRINUSE ? Outcome::held : Outcome::unavailable;
}

}  // namespace

std::optional<PortClaim> PortClaim::take(int port) {
    int fd = -1;
    if (bindName(port, fd) == Outcome::held) {
        return std::nullopt;
    }
    if (fd >= 0) {
        std::lock_guard lock(localClaims().mutex);
        localClaims().ports.insert(port);
    }
    return PortClaim(port, fd);
}

PortClaim::Holder PortClaim::holderOf(int port) {
    {
        std::lock_guard lock(localClaims().mutex);
        if (localClaims().ports.contains(port)) {
            return Holder::thisProcess;
        }
    }
    int fd = -1;
    Outcome outcome = bindName(port, fd);
    if (fd >= 0) {
        ::close(fd);
    }
    return outcome == Outcome::held ? Holder::otherProcess : Holder::none;
}

bool PortClaim::waitUntilReleased(int port, std::chrono::milliseconds patience) {
    auto& claims = localClaims();
    std::unique_lock lock(claims.mutex);
    return claims.released.wait_for(lock, patience, [&] { return !claims.ports.contains(port); });
}

PortClaim::PortClaim(int port, int fd) : port_(port), fd_(fd) {}

PortClaim::PortClaim(PortClaim&& other) noexcept : port_(other.port_), fd_(std::exchange(other.fd_, -1)) {}

PortClaim& PortClaim::operator=(PortClaim&& other) noexcept {
    if (this != &other) {
        release();
        port_ = other.port_;
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

PortClaim::~PortClaim() { release(); }

void PortClaim::release() {
    if (fd_ < 0) {
        return;
    }
    ::close(std::exchange(fd_, -1));
    auto& claims = localClaims();
    {
        std::lock_guard lock(claims.mutex);
        claims.ports.erase(claims.ports.find(port_));
    }
    claims.released.notify_all();
}

}  // namespace ferrylink::bridge
