#include "foundation/socket_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <unordered_set>

namespace ferrylink::foundation {
namespace {

TEST(SocketAddressDescription, ShowsHostTextOnlyWhenItWasGiven) {
    auto named = SocketAddress::makeResolving("127.0.0.1", 19132);
    EXPECT_EQ(named.description(), "[IPv4]127.0.0.1/127.0.0.1:19132");
    uint8_t loopback[4] = {127, 0, 0, 1};
    EXPECT_EQ(SocketAddress::fromBytes(AF_INET, loopback, 19132).description(), "[IPv4]127.0.0.1:19132");
    auto v6 = SocketAddress::makeResolving("::1", 5);
    EXPECT_EQ(v6.description(), "[IPv6]::1/::1:5");
    EXPECT_EQ(SocketAddress::unixDomain("/tmp/x.sock").description(), "[UDS]/tmp/x.sock");
}

TEST(SocketAddressEquality, IgnoresTheHostText) {
    auto resolved = SocketAddress::makeResolving("127.0.0.1", 4000);
    uint8_t loopback[4] = {127, 0, 0, 1};
    auto received = SocketAddress::fromBytes(AF_INET, loopback, 4000);
    EXPECT_EQ(resolved, received);
    EXPECT_EQ(resolved.hash(), received.hash());
    EXPECT_NE(resolved, SocketAddress::fromBytes(AF_INET, loopback, 4001));

    std::unordered_set<SocketAddress> table{resolved};
    EXPECT_TRUE(table.contains(received));
}

TEST(SocketAddressAccessors, FamilyAddressAndPort) {
    auto v4 = SocketAddress::makeResolving("10.1.2.3", 80);
    EXPECT_EQ(v4.protocol(), AF_INET);
    EXPECT_EQ(v4.ipAddress(), "10.1.2.3");
    EXPECT_EQ(v4.port(), 80);
    auto v6 = SocketAddress::makeResolving("fe80::1", 19133);
    EXPECT_EQ(v6.protocol(), AF_INET6);
    EXPECT_EQ(v6.ipAddress(), "fe80::1");
    auto local = SocketAddress::unixDomain("/run/x");
    EXPECT_FALSE(local.ipAddress().has_value());
    EXPECT_FALSE(local.port().has_value());
}

TEST(SocketAddressResolving, UnknownNameThrowsWithHostAndPort) {
    try {
        SocketAddress::makeResolving("nothing-here.invalid", 19132);
        FAIL() << "resolved a reserved name";
    } catch (const SocketAddressError& error) {
        EXPECT_EQ(error.code, SocketAddressError::Code::unknown);
        EXPECT_EQ(error.host, "nothing-here.invalid");
        EXPECT_EQ(error.port, 19132);
    }
}

}  // namespace
}  // namespace ferrylink::foundation
