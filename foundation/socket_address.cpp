#include "foundation/socket_address.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>

#include "foundation/fatal.h"

namespace ferrylink::foundation {

SocketAddressError::SocketAddressError(Code code, std::string host, int port)
    : std::runtime_error("unknown(host: \"" + host + "\", port: " + std::to_string(port) + ")"),
      code(code),
      host(std::move(host)),
      port(port) {}

SocketAddress SocketAddress::makeResolving(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* results = nullptr;
    std::string service = std::to_string(port);
    if (port < 0 || port > 65535 || ::getaddrinfo(host.c_str(), service.c_str(), &hints, &results) != 0 ||
        results == nullptr) {
        throw SocketAddressError(SocketAddressError::Code::unknown, host, port);
    }
    std::optional<SocketAddress> found;
    for (addrinfo* entry = results; entry != nullptr && !found; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET || entry->ai_family == AF_INET6) {
            found = fromSockaddr(entry->ai_addr, entry->ai_addrlen, host);
        }
    }
    ::freeaddrinfo(results);
    if (!found) {
        throw SocketAddressError(SocketAddressError::Code::unknown, host, port);
    }
    return *found;
}

SocketAddress SocketAddress::fromSockaddr(const sockaddr* address, socklen_t length,
                                          std::optional<std::string> host) {
    SocketAddress result;
    std::memcpy(&result.storage_, address, std::min<size_t>(length, sizeof(result.storage_)));
    switch (address->sa_family) {
        case AF_INET:
            result.kind_ = Kind::v4;
            break;
        case AF_INET6:
            result.kind_ = Kind::v6;
            break;
        case AF_UNIX:
            result.kind_ = Kind::unixDomainSocket;
            break;
        default:
            fatalFault("unsupported address family");
    }
    result.host_ = std::move(host);
    return result;
}

SocketAddress SocketAddress::fromBytes(int family, std::span<const uint8_t> bytes, uint16_t port) {
    SocketAddress result;
    if (family == AF_INET && bytes.size() == 4) {
        auto* v4 = reinterpret_cast<sockaddr_in*>(&result.storage_);
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        std::memcpy(&v4->sin_addr, bytes.data(), 4);
        result.kind_ = Kind::v4;
    } else if (family == AF_INET6 && bytes.size() == 16) {
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&result.storage_);
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(port);
        std::memcpy(&v6->sin6_addr, bytes.data(), 16);
        result.kind_ = Kind::v6;
    } else {
        fatalFault("address bytes do not match their family");
    }
    return result;
}

SocketAddress SocketAddress::unixDomain(const std::string& path) {
    SocketAddress result;
    auto* local = reinterpret_cast<sockaddr_un*>(&result.storage_);
    local->sun_family = AF_UNIX;
    std::strncpy(local->sun_path, path.c_str(), sizeof(local->sun_path) - 1);
    result.kind_ = Kind::unixDomainSocket;
    return result;
}

int SocketAddress::protocol() const { return storage_.ss_family; }

socklen_t SocketAddress::sockaddrLength() const {
    switch (kind_) {
        case Kind::v4:
            return sizeof(sockaddr_in);
        case Kind::v6:
            return sizeof(sockaddr_in6);
        case Kind::unixDomainSocket:
            return sizeof(sockaddr_un);
    }
    return sizeof(storage_);
}

std::span<const uint8_t> SocketAddress::addressBytes() const {
    switch (kind_) {
        case Kind::v4:
            return {reinterpret_cast<const uint8_t*>(&reinterpret_cast<const sockaddr_in*>(&storage_)->sin_addr), 4};
        case Kind::v6:
            return {reinterpret_cast<const uint8_t*>(&reinterpret_cast<const sockaddr_in6*>(&storage_)->sin6_addr),
                    16};
        case Kind::unixDomainSocket:
            return {};
    }
    return {};
}

std::optional<std::string> SocketAddress::ipAddress() const {
    if (kind_ == Kind::unixDomainSocket) {
        return std::nullopt;
    }
    char text[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(protocol(), addressBytes().data(), text, sizeof(text));
    return std::string(text);
}

std::optional<int> SocketAddress::port() const {
    switch (kind_) {
        case Kind::v4:
            return ntohs(reinterpret_cast<const sockaddr_in*>(&storage_)->sin_port);
        case Kind::v6:
            return ntohs(reinterpret_cast<const sockaddr_in6*>(&storage_)->sin6_port);
        case Kind::unixDomainSocket:
            return std::nullopt;
    }
    return std::nullopt;
}

std::string SocketAddress::description() const {
    if (kind_ == Kind::unixDomainSocket) {
        return std::string("[UDS]") + reinterpret_cast<const sockaddr_un*>(&storage_)->sun_path;
    }
    std::string text = kind_ == Kind::v4 ? "[IPv4]" : "[IPv6]";
    if (host_) {
        text += *host_ + "/";
    }
    return text + *ipAddress() + ":" + std::to_string(*port());
}

bool SocketAddress::operator==(const SocketAddress& other) const {
    if (kind_ != other.kind_) {
        return false;
    }
    switch (kind_) {
        case Kind::v4: {
            auto* a = reinterpret_cast<const sockaddr_in*>(&storage_);
            auto* b = reinterpret_cast<const sockaddr_in*>(&other.storage_);
            return a->sin_port == b->sin_port && a->sin_addr.s_addr == b->sin_addr.s_addr;
        }
        case Kind::v6: {
            auto* a = reinterpret_cast<const sockaddr_in6*>(&storage_);
            auto* b = reinterpret_cast<const sockaddr_in6*>(&other.storage_);
            return a->sin6_port == b->sin6_port && a->sin6_flowinfo == b->sin6_flowinfo &&
                   a->sin6_scope_id == b->sin6_scope_id &&
                   std::memcmp(&a->sin6_addr, &b->sin6_addr, sizeof(a->sin6_addr)) == 0;
        }
        case Kind::unixDomainSocket:
            return std::strcmp(reinterpret_cast<const sockaddr_un*>(&storage_)->sun_path,
                               reinterpret_cast<const sockaddr_un*>(&other.storage_)->sun_path) == 0;
    }
    return false;
}

size_t SocketAddress::hash() const {
    // FNV-1a over the fields that equality compares.
    size_t value = 14695981039346656037ull;
    auto mix = [&value](const void* data, size_t size) {
        auto* bytes = static_cast<const uint8_t*>(data);
        for (size_t i = 0; i < size; ++i) {
            value = (value ^ bytes[i]) * 1099511628211ull;
        }
    };
    int kind = static_cast<int>(kind_);
    mix(&kind, sizeof(kind));
    if (kind_ == Kind::unixDomainSocket) {
        auto* path = reinterpret_cast<const sockaddr_un*>(&storage_)->sun_path;
        mix(path, std::strlen(path));
        return value;
    }
    int portValue = *port();
    mix(&portValue, sizeof(portValue));
    auto bytes = addressBytes();
    mix(bytes.data(), bytes.size());
    if (kind_ == Kind::v6) {
        auto* v6 = reinterpret_cast<const sockaddr_in6*>(&storage_);
        mix(&v6->sin6_flowinfo, sizeof(v6->sin6_flowinfo));
        mix(&v6->sin6_scope_id, sizeof(v6->sin6_scope_id));
    }
    return value;
}

}  // namespace ferrylink::foundation
