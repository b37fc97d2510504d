#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ifaddrs;

namespace ferrylink::app {

// Names of the Ethernet-like interfaces in an interface list (Wi-Fi is one
// of them; loopback is not), in the list's order. An entry without a name is
// a fatal fault.
std::vector<std::string> ethernetInterfaceNames(const ifaddrs* list);

// The numeric IPv4 addresses of those interfaces, in the list's order,
// duplicates kept.
std::vector<std::string> localAddresses(const ifaddrs* list);

// The same for this machine, by getifaddrs; empty when it fails.
std::vector<std::string> localAddresses();

// Touches the local network once at start-up, as a platform that asks the
// user for local-network access needs to see. It opens one UDP socket per
// local address, connected towards that address, and closes them all when it
// goes. Connecting a UDP socket only sets its peer: nothing is ever sent.
class LocalNetworkPermissionService {
public:
    static constexpr uint16_t defaultPort = 12345;

    // The machine's own addresses, towards port 12345.
    LocalNetworkPermissionService();
    // Given addresses and port; for tests.
    LocalNetworkPermissionService(std::vector<std::string> interfaces, uint16_t port);
    ~LocalNetworkPermissionService();
    LocalNetworkPermissionService(const LocalNetworkPermissionService&) = delete;
    LocalNetworkPermissionService& operator=(const LocalNetworkPermissionService&) = delete;

    const std::vector<std::string>& interfaces() const { return interfaces_; }
    uint16_t port() const { return port_; }

    // Opens the sockets. An address that can't be used is left out; with no
    // address this does nothing.
    void requestPermission();

    // The peers ("address:port") of the open sockets, as the kernel has them.
    std::vector<std::string> connectedPeers() const;

private:
    uint16_t port_;
    std::vector<std::string> interfaces_;
    std::vector<int> connections_;
};

}  // namespace ferrylink::app
