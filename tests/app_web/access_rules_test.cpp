// Who may use the page: the token, the loopback test of the Host header and
// the listening address the command line takes.

#include <gtest/gtest.h>

#include <set>

#include "app/app_core.h"
#include "app/app_test_support.h"
#include "app/web/access_token.h"
#include "app/web/listen_address.h"
#include "app/web/web_server.h"

namespace ferrylink::app {
namespace {

TEST(AccessTokenTest, IsThirtyTwoLowerHexDigitsAndComparedWhole) {
    EXPECT_FALSE(isAccessTokenText("0123456789ABCDEF0123456789abcdef"));
    EXPECT_FALSE(isAccessTokenText("0123456789abcdef"));
    // Compared whole: a prefix is no match.
    EXPECT_TRUE(sameAccessToken("00ff", "00ff"));
    EXPECT_FALSE(sameAccessToken("00fe", "00ff"));
    EXPECT_FALSE(sameAccessToken("00f", "00ff"));
}

TEST(LoopbackHostTest, KnowsLocalhostTheWhole127NetworkAndV6Loopback) {
    for (const char* host : {"localhost", "LOCALHOST", "127.0.0.1", "127.8.9.10", "::1", "[::1]"}) {
        EXPECT_TRUE(isLoopbackHost(host)) << host;
    }
    for (const char* host : {"0.0.0.0", "::", "192.168.1.20", "128.0.0.1", "localhost.example.com", "attacker.example",
                             "", "[::2]"}) {
        EXPECT_FALSE(isLoopbackHost(host)) << host;
    }
}

TEST(ListenAddressTest, ReadsHostAndPort) {
    EXPECT_EQ(parseListenAddress("127.0.0.1:8080"), (ListenAddress{"127.0.0.1", 8080}));
    EXPECT_EQ(parseListenAddress("0.0.0.0:0"), (ListenAddress{"0.0.0.0", 0}));
    EXPECT_EQ(parseListenAddress("localhost:65535"), (ListenAddress{"localhost", 65535}));
    EXPECT_EQ(parseListenAddress("[::]:8080"), (ListenAddress{"::", 8080}));
    for (const char* text : {"127.0.0.1", ":8080", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:80x",
                             "::1:8080", "[::1]8080", "[host]:80", ""}) {
        EXPECT_EQ(parseListenAddress(text), std::nullopt) << text;
    }
    EXPECT_EQ(urlHost("::1"), "[::1]");
    EXPECT_EQ(urlHost("127.0.0.1"), "127.0.0.1");
}

// The rule is decided when the server is made, before anything is bound.
TEST(WebServerTokenTest, OnlyAListenerBeyondLoopbackWantsAToken) {
    testing::ScratchDirectory scratch;
    AppCore core(testing::testConfig(scratch.path()), nullptr);
    for (const char* host : {"127.0.0.1", "localhost", "::1"}) {
        WebServer web(core, WebServerOptions{.listen = {host, 0}});
        EXPECT_EQ(web.token(), "") << host;
    }
    std::set<std::string> tokens;  // new each time
    for (const char* host : {"0.0.0.0", "::", "192.168.1.20", "0.0.0.0"}) {
        WebServer web(core, WebServerOptions{.listen = {host, 0}});
        EXPECT_TRUE(isAccessTokenText(web.token())) << host;
        tokens.insert(web.token());
    }
    EXPECT_EQ(tokens.size(), 4u);
    WebServer fixed(core, WebServerOptions{.listen = {"127.0.0.1", 0}, .fixedToken = "0123456789abcdef0123456789abcdef"});
    EXPECT_EQ(fixed.token(), "0123456789abcdef0123456789abcdef");
    EXPECT_THROW(WebServer(core, WebServerOptions{.listen = {"127.0.0.1", 0}, .fixedToken = "short"}),
                 std::invalid_argument);
}

}  // namespace
}  // namespace ferrylink::app
