#include "app/local_network_permission.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iterator>
#include <vector>

namespace ferrylink::app {
namespace {

TEST(LocalAddresses, TakesIpv4OfEthernetLikeInterfacesInOrder) {
    // An interface list as getifaddrs shapes it: one AF_PACKET entry per
    // interface carrying its hardware type, then its addresses.
    const struct {
        const char* name;
        int family;  // AF_UNSPEC: an entry without an address
        const char* address;
        unsigned short hardware = 0;
    } table[] = {
        {"lo", AF_PACKET, nullptr, ARPHRD_LOOPBACK}, {"eth0", AF_PACKET, nullptr, ARPHRD_ETHER},
        {"wlan0", AF_PACKET, nullptr, ARPHRD_ETHER}, {"wwan0", AF_PACKET, nullptr, ARPHRD_NONE},
        {"lo", AF_INET, "127.0.0.1"},                {"eth0", AF_INET, "192.168.1.20"},
        {"eth0", AF_INET6, "fe80::1"},               {"wwan0", AF_INET, "100.64.0.7"},
        {"eth0", AF_UNSPEC, nullptr},                {"wlan0", AF_INET, "10.0.0.5"},
        {"eth0", AF_INET, "192.168.1.21"},
    };
    std::vector<sockaddr_storage> addresses(std::size(table));
    std::vector<ifaddrs> list(std::size(table));
    for (size_t i = 0; i < list.size(); ++i) {
        list[i].ifa_name = const_cast<char*>(table[i].name);
        list[i].ifa_next = i + 1 < list.size() ? &list[i + 1] : nullptr;
        list[i].ifa_addr = table[i].family == AF_UNSPEC ? nullptr : reinterpret_cast<sockaddr*>(&addresses[i]);
        addresses[i].ss_family = static_cast<sa_family_t>(table[i].family);
        if (table[i].family == AF_PACKET) {
            reinterpret_cast<sockaddr_ll&>(addresses[i]).sll_hatype = table[i].hardware;
        } else if (table[i].family == AF_INET) {
            ::inet_pton(AF_INET, table[i].address, &reinterpret_cast<sockaddr_in&>(addresses[i]).sin_addr);
        } else if (table[i].family == AF_INET6) {
            ::inet_pton(AF_INET6, table[i].address, &reinterpret_cast<sockaddr_in6&>(addresses[i]).sin6_addr);
        }
    }
    EXPECT_EQ(ethernetInterfaceNames(list.data()), (std::vector<std::string>{"eth0", "wlan0"}));
    // Two addresses on one interface give two entries.
    EXPECT_EQ(localAddresses(list.data()), (std::vector<std::string>{"192.168.1.20", "10.0.0.5", "192.168.1.21"}));
    EXPECT_TRUE(localAddresses(nullptr).empty());
}

TEST(LocalNetworkPermission, OpensOneSocketPerAddressAndSendsNothing) {
    // A UDP socket on 127.0.0.1 that stands where the probe points.
    int receiver = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    ::getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length);
    const uint16_t port = ntohs(address.sin_port);

    LocalNetworkPermissionService({}, port).requestPermission();
    {
        LocalNetworkPermissionService service({"127.0.0.1", "not an address", "127.0.0.1"}, port);
        EXPECT_TRUE(service.connectedPeers().empty());
        service.requestPermission();
        auto peer = "127.0.0.1:" + std::to_string(port);
        EXPECT_EQ(service.connectedPeers(), (std::vector<std::string>{peer, peer}));
    }
    // Loopback queues a datagram before its send returns: one sent would be here.
    char byte;
    EXPECT_EQ(::recv(receiver, &byte, 1, MSG_DONTWAIT), -1);
    ::close(receiver);
}

}  // namespace
}  // namespace ferrylink::app
