#include "foundation/socket_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <unordered_set>

namespace ferrylink::foundation {
namespace {

TEST(SocketAddress, DescriptionShowsHostTextOnlyWhenItWasGiven) {
    uint8_t loopback[4] = {127, 0, 0, 1};
    EXPECT_EQ(SocketAddress::makeResolving("127.0.0.1", 19132).description(), "[IPv4]127.0.0.1/127.0.0.1:19132");
    EXPECT_EQ(SocketAddress::fromBytes(AF_INET, loopback, 19132).description(), "[IPv4]127.0.0.1:19132");
    EXPECT_EQ(SocketAddress::makeResolving("::1", 5).description(), "[IPv6]::1/::1:5");
    EXPECT_EQ(SocketAddress::unixDomain("/tmp/x.sock").description(), "[UDS]/tmp/x.sock");
}

TEST(SocketAddress, EqualityAndHashIgnoreTheHostText) {
    auto resolved = SocketAddress::makeResolving("127.0.0.1", 4000);
    uint8_t loopback[4] = {127, 0, 0, 1};
    auto received = SocketAddress::fromBytes(AF_INET, loopback, 4000);
    EXPECT_EQ(resolved, received);
    EXPECT_NE(resolved, SocketAddress::fromBytes(AF_INET, loopback, 4001));
    std::unordered_set<SocketAddress> table{resolved};
    EXPECT_TRUE(table.contains(received));
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
