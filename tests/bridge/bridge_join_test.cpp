#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>
#include <vector>

#include "bridge/sim/simulated_console.h"
#include "foundation/clock.h"
#include "foundation/socket_address.h"
#include "bridge/packets/version_groups.h"
#include "running_bridge.h"

namespace ferrylink::bridge {
namespace {

using sim::ConsoleOptions;
using sim::ConsoleReport;
using sim::SimulatedConsole;
using testing::RunningBridge;

std::string describe(const ConsoleReport& report) {
    std::string text;
    for (const auto& problem : report.problems) {
        text += "\n  " + problem;
    }
    return text;
}

ConsoleReport joinAs(const RunningBridge& bridge, int32_t protocol, std::optional<uint8_t> raknetVersion = {},
                     const std::string& name = "Console") {
    ConsoleOptions options;
    options.port = bridge.port();
    options.protocol = protocol;
    options.raknetVersion = raknetVersion;
    options.displayName = name;
    return SimulatedConsole(options).join();
}

// What the system's resolver makes of "localhost", as the bridge will see it.
std::string localhostNumeric() { return *foundation::SocketAddress::makeResolving("localhost", 19132).ipAddress(); }

struct JoinCase {
    int32_t protocol;
    std::optional<uint8_t> raknetVersion;
};

class ConsoleJoin : public ::testing::TestWithParam<JoinCase> {};

TEST_P(ConsoleJoin, EndsInATransferToTheResolvedTarget) {
    RunningBridge bridge("localhost", 19132);
    auto report = joinAs(bridge, GetParam().protocol, GetParam().raknetVersion);
    EXPECT_TRUE(report.clean()) << describe(report);
    ASSERT_TRUE(report.transferred()) << describe(report);
    EXPECT_EQ(*report.transferAddress, localhostNumeric());
    if (localhostNumeric().find(':') == std::string::npos) {
        EXPECT_EQ(*report.transferAddress, "127.0.0.1");
    }
    EXPECT_EQ(*report.transferPort, 19132);
    EXPECT_TRUE(report.advert.starts_with("MCPE;Ferrylink;560;1.19.50;0;99;"));
    EXPECT_TRUE(bridge.printer->contains("Protocol version: " + std::to_string(GetParam().protocol)));
    EXPECT_TRUE(bridge.printer->contains("Player inizialized Console"));
    EXPECT_TRUE(bridge.printer->contains("IP " + localhostNumeric() + ":19132"));
    // A console newer than any we know is named once.
    const auto newer = "Protocol " + std::to_string(GetParam().protocol) + " is newer than this bridge knows";
    EXPECT_EQ(bridge.printer->count(newer + "; it gets the layouts of " + std::to_string(bridge::newestKnownProtocol)),
              GetParam().protocol > bridge::newestKnownProtocol ? 1u : 0u);
}

// The first protocol of every group, the edges of the framing (553/554,
// 648/649), one newer than any we know, and the RakNet version a console of
// the protocol wouldn't use.
std::vector<JoinCase> joinCases() {
    std::vector<JoinCase> cases;
    for (bridge::VersionGroup group : bridge::versionGroups) {
        cases.push_back({std::max(group.firstProtocol, 408), {}});
    }
    for (int32_t protocol : {553, 648, bridge::newestKnownProtocol + 7}) {
        cases.push_back({protocol, {}});
    }
    cases.push_back({408, 11});
    cases.push_back({560, 10});
    return cases;
}

INSTANTIATE_TEST_SUITE_P(OverLoopback, ConsoleJoin, ::testing::ValuesIn(joinCases()), [](const auto& info) {
    std::string name = "Protocol" + std::to_string(info.param.protocol);
    return info.param.raknetVersion ? name + "RakNet" + std::to_string(*info.param.raknetVersion) : name;
});

TEST(BridgeJoinTest, UnresolvableTargetGetsInvalidIpAddress) {
    RunningBridge bridge("nowhere.invalid", 19132);
    auto report = joinAs(bridge, 560);
    EXPECT_TRUE(report.clean()) << describe(report);
    EXPECT_FALSE(report.transferred());
    EXPECT_EQ(report.disconnectMessage, "Invalid IP address");
    EXPECT_TRUE(bridge.printer->waitForPrefix("Error unknown(host: \"nowhere.invalid\""));
}

TEST(BridgeJoinTest, WithoutResolvingTheNameGoesOutAsWritten) {
    RunningBridge bridge("localhost", 19134, false, /*resolveIp=*/false);
    auto report = joinAs(bridge, 560);
    ASSERT_TRUE(report.transferred()) << describe(report);
    EXPECT_EQ(*report.transferAddress, "localhost");
    EXPECT_EQ(*report.transferPort, 19134);
}

TEST(BridgeJoinTest, TwentyConsolesJoinAtOnce) {
    RunningBridge bridge("localhost", 19132);
    constexpr int consoles = 20;
    std::vector<std::future<ConsoleReport>> joins;
    for (int i = 0; i < consoles; ++i) {
        joins.push_back(std::async(std::launch::async, [&bridge, i] {
            return joinAs(bridge, i % 2 == 0 ? 560 : bridge::newestKnownProtocol, {}, "Console" + std::to_string(i));
        }));
    }
    for (int i = 0; i < consoles; ++i) {
        auto report = joins[i].get();
        EXPECT_TRUE(report.clean()) << "console " << i << describe(report);
        EXPECT_TRUE(report.transferred()) << "console " << i;
    }
    for (int i = 0; i < consoles; ++i) {
        EXPECT_TRUE(bridge.printer->contains("Player inizialized Console" + std::to_string(i)));
    }
}

TEST(BridgeJoinTest, OneTransferClosesFifteenSecondsAfterTheFirstClientLeft) {
    RunningBridge bridge("localhost", 19132, /*oneTransfer=*/true);
    auto report = joinAs(bridge, 560, {}, "Alex");
    ASSERT_TRUE(report.transferred()) << describe(report);
    ASSERT_TRUE(bridge.printer->waitFor("Alex disconnected due to \"client disconnect\"!"));
    EXPECT_TRUE(bridge.hop->isRunning());

    // A second client leaving within the 15 seconds arms its own timer; the
    // first one closes the server and the second finds it closed.
    auto second = joinAs(bridge, 560, {}, "Bob");
    ASSERT_TRUE(second.transferred()) << describe(second);
    ASSERT_TRUE(bridge.printer->waitFor("Bob disconnected due to \"client disconnect\"!"));

    foundation::Clock::advance(15000);
    ASSERT_TRUE(bridge.closes->waitClosed());
    EXPECT_FALSE(bridge.hop->isRunning());
    // Blocks that are due run in the order of their deadlines: once this one
    // has run, so has the second client's timer.
    std::promise<void> drained;
    bridge.hop->serverQueue.asyncAfter(std::chrono::milliseconds(0), [&drained] { drained.set_value(); });
    drained.get_future().wait();
    EXPECT_EQ(bridge.printer->count("Server shutting down!"), 1u);
    EXPECT_EQ(bridge.closes->count(), 1);
}

TEST(BridgeJoinTest, WithoutOneTransferALeavingClientLeavesTheServerRunning) {
    RunningBridge bridge("localhost", 19132, /*oneTransfer=*/false);
    auto report = joinAs(bridge, 560, 10, "Alex");
    ASSERT_TRUE(report.transferred()) << describe(report);
    ASSERT_TRUE(bridge.printer->waitFor("Alex disconnected due to \"client disconnect\"!"));
    foundation::Clock::advance(15000);
    // The timer has had its chance once a later block on the queue has run.
    std::promise<void> drained;
    bridge.hop->serverQueue.asyncAfter(std::chrono::milliseconds(15000), [&drained] { drained.set_value(); });
    foundation::Clock::advance(15000);
    drained.get_future().wait();
    EXPECT_TRUE(bridge.hop->isRunning());
    EXPECT_EQ(bridge.closes->count(), 0);
}

}  // namespace
}  // namespace ferrylink::bridge
