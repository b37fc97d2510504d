#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace ferrylink::foundation {

// The resolver's failure, carrying what was asked for.
class SocketAddressError : public std::runtime_error {
public:
    enum class Code { unknown };
    SocketAddressError(Code code, std::string host, int port);
    Code code;
    std::string host;
    int port;
};

// An IPv4, IPv6 or local-domain address. Equality and hashing look at the
// family, port and binary address (for IPv6 also flow information and scope),
// never at the host text an address was made from, so a resolved name equals
// the same address read off a received datagram.
class SocketAddress {
public:
    enum class Kind { v4, v6, unixDomainSocket };

    // Accepts a numeric address or a name; resolving blocks the caller.
    // Throws SocketAddressError (Code::unknown) when nothing is found.
    static SocketAddress makeResolving(const std::string& host, int port);
    // The raw form of a received or bound address.
    static SocketAddress fromSockaddr(const sockaddr* address, socklen_t length,
                                      std::optional<std::string> host = std::nullopt);
    // From an address family (AF_INET or AF_INET6), its network-order bytes and a port.
    static SocketAddress fromBytes(int family, std::span<const uint8_t> bytes, uint16_t port);
    static SocketAddress unixDomain(const std::string& path);

    Kind kind() const { return kind_; }
    // The address family, AF_INET or AF_INET6 (AF_UNIX for the local-domain kind).
    int protocol() const;
    std::optional<std::string> ipAddress() const;
    std::optional<int> port() const;
    // "[IPv4]host/1.2.3.4:19132", "[IPv4]1.2.3.4:19132", "[IPv6]::1:19132", "[UDS]/path".
    std::string description() const;
    // The 4 or 16 address bytes in network order; empty for the local-domain kind.
    std::span<const uint8_t> addressBytes() const;

    const sockaddr* sockaddrPointer() const { return reinterpret_cast<const sockaddr*>(&storage_); }
    socklen_t sockaddrLength() const;

    bool operator==(const SocketAddress& other) const;
    size_t hash() const;

private:
    SocketAddress() = default;

    Kind kind_ = Kind::v4;
    sockaddr_storage storage_{};
    std::optional<std::string> host_;
};

}  // namespace ferrylink::foundation

template <>
struct std::hash<ferrylink::foundation::SocketAddress> {
    size_t operator()(const ferrylink::foundation::SocketAddress& address) const { return address.hash(); }
};
