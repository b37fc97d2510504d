#include "app/local_network_permission.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>

#include "foundation/fatal.h"

namespace ferrylink::app {

namespace {

// On Linux each interface has one AF_PACKET entry whose hardware type tells
// its kind; Ethernet and Wi-Fi both report ARPHRD_ETHER.
bool isEthernetLink(const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_PACKET) {
        return false;
    }
    const auto* link = reinterpret_cast<const sockaddr_ll*>(entry.ifa_addr);
    return link->sll_hatype == ARPHRD_ETHER;
}

struct InterfaceList {
    InterfaceList() {
        if (::getifaddrs(&list) != 0) {
            list = nullptr;
        }
    }
    ~InterfaceList() {
        if (list != nullptr) {
            ::freeifaddrs(list);
        }
    }
    InterfaceList(const InterfaceList&) = delete;
    InterfaceList& operator=(const InterfaceList&) = delete;
    ifaddrs* list = nullptr;
};

}  // namespace

std::vector<std::string> ethernetInterfaceNames(const ifaddrs* list) {
    std::vector<std::string> names;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (!isEthernetLink(*entry)) {
            continue;
        }
        if (entry->ifa_name == nullptr) {
            foundation::fatalFault("an Ethernet interface without a name");
        }
        names.emplace_back(entry->ifa_name);
    }
    return names;
}

std::vector<std::string> localAddresses(const ifaddrs* list) {
    auto names = ethernetInterfaceNames(list);
    std::set<std::string> ethernet(names.begin(), names.end());
    std::vector<std::string> addresses;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET || entry->ifa_name == nullptr ||
            !ethernet.contains(entry->ifa_name)) {
            continue;
        }
        char host[NI_MAXHOST];  // 1025
        if (::getnameinfo(entry->ifa_addr, sizeof(sockaddr_in), host, sizeof host, nullptr, 0,
                          NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
            addresses.emplace_back(host);
        }
    }
    return addresses;
}

std::vector<std::string> localAddresses() {
    InterfaceList interfaces;
    return localAddresses(interfaces.list);
}

LocalNetworkPermissionService::LocalNetworkPermissionService()
    : LocalNetworkPermissionService(localAddresses(), defaultPort) {}

LocalNetworkPermissionService::LocalNetworkPermissionService(std::vector<std::string> interfaces, uint16_t port)
    : port_(port), interfaces_(std::move(interfaces)) {}

LocalNetworkPermissionService::~LocalNetworkPermissionService() {
    for (int socket : connections_) {
        ::close(socket);
    }
}

void LocalNetworkPermissionService::requestPermission() {
    for (const auto& address : interfaces_) {
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(port_);
        if (::inet_pton(AF_INET, address.c_str(), &peer.sin_addr) != 1) {
            continue;
        }
        int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (socket < 0) {
            continue;
        }
        if (::connect(socket, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
            ::close(socket);
            continue;
        }
        connections_.push_back(socket);
    }
}

std::vector<std::string> LocalNetworkPermissionService::connectedPeers() const {
    std::vector<std::string> peers;
    for (int socket : connections_) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        if (::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &length) != 0) {
            continue;
        }
        char host[INET_ADDRSTRLEN];
        ::inet_ntop(AF_INET, &peer.sin_addr, host, sizeof host);
        peers.push_back(std::string(host) + ":" + std::to_string(ntohs(peer.sin_port)));
    }
    return peers;
}

}  // namespace ferrylink::app
