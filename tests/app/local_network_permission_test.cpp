#include "app/local_network_permission.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <deque>

namespace ferrylink::app {
namespace {

// Builds an interface list the way getifaddrs shapes it: one AF_PACKET
// entry per interface carrying its hardware type, then its addresses.
class FakeInterfaces {
public:
    FakeInterfaces& link(const char* name, unsigned short hardwareType) {
        sockaddr_ll link{};
        link.sll_family = AF_PACKET;
        link.sll_hatype = hardwareType;
        return add(name, &link, sizeof link);
    }
    FakeInterfaces& ipv4(const char* name, const char* address) {
        sockaddr_in ipv4{};
        ipv4.sin_family = AF_INET;
        ::inet_pton(AF_INET, address, &ipv4.sin_addr);
        return add(name, &ipv4, sizeof ipv4);
    }
    FakeInterfaces& ipv6(const char* name, const char* address) {
        sockaddr_in6 ipv6{};
        ipv6.sin6_family = AF_INET6;
        ::inet_pton(AF_INET6, address, &ipv6.sin6_addr);
        return add(name, &ipv6, sizeof ipv6);
    }
    FakeInterfaces& withoutAddress(const char* name) { return add(name, nullptr, 0); }

    const ifaddrs* list() const { return entries_.empty() ? nullptr : &entries_.front(); }

private:
    // std::deque keeps elements in place as it grows at the back.
    FakeInterfaces& add(const char* name, const void* address, size_t size) {
        sockaddr_storage& storage = addresses_.emplace_back();
        if (address != nullptr) {
            std::memcpy(&storage, address, size);
        }
        ifaddrs& entry = entries_.emplace_back();
        entry.ifa_name = const_cast<char*>(name);
        entry.ifa_addr = address == nullptr ? nullptr : reinterpret_cast<sockaddr*>(&storage);
        if (entries_.size() > 1) {
            entries_[entries_.size() - 2].ifa_next = &entry;
        }
        return *this;
    }

    std::deque<sockaddr_storage> addresses_;
    std::deque<ifaddrs> entries_;
};

TEST(LocalAddresses, TakesIpv4OfEthernetLikeInterfacesInOrder) {
    FakeInterfaces interfaces;
    interfaces.link("lo", ARPHRD_LOOPBACK)
        .link("eth0", ARPHRD_ETHER)
        .link("wlan0", ARPHRD_ETHER)
        .link("wwan0", ARPHRD_NONE)
        .ipv4("lo", "127.0.0.1")
        .ipv4("eth0", "192.168.1.20")
        .ipv6("eth0", "fe80::1")
        .ipv4("wwan0", "100.64.0.7")
        .withoutAddress("eth0")
        .ipv4("wlan0", "10.0.0.5")
        .ipv4("eth0", "192.168.1.21");
    EXPECT_EQ(ethernetInterfaceNames(interfaces.list()), (std::vector<std::string>{"eth0", "wlan0"}));
    // Two addresses on one interface give two entries.
    EXPECT_EQ(localAddresses(interfaces.list()),
              (std::vector<std::string>{"192.168.1.20", "10.0.0.5", "192.168.1.21"}));
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
