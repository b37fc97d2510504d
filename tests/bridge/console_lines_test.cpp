#include "bridge/console_lines.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "bridge/sim/simulated_console.h"
#include "running_bridge.h"

namespace ferrylink::bridge {
namespace {

// A whole join, start to stop: the session logs each step in order, every
// line it prints is known, and a quiet console keeps exactly the story of the
// run.
TEST(ConsoleLinesTest, AJoinPrintsOnlyKnownLinesAndQuietKeepsItsStory) {
    std::vector<std::string> lines;
    {
        testing::RunningBridge bridge("127.0.0.1", 19133);
        sim::ConsoleOptions options;
        options.port = bridge.port();
        options.displayName = "IP Steve";
        ASSERT_TRUE(sim::SimulatedConsole(options).join().transferred());
        ASSERT_TRUE(bridge.printer->waitFor("IP Steve disconnected due to \"client disconnect\"!"));
        bridge.hop->stop();
        ASSERT_TRUE(bridge.closes->waitClosed());
        lines = bridge.printer->lines();
    }
    auto at = [&](const std::string& line) { return std::find(lines.begin(), lines.end(), line) - lines.begin(); };
    EXPECT_LT(at("packetId: 193"), at("RequestNetworkSettingsPacket"));
    EXPECT_LT(at("RequestNetworkSettingsPacket"), at("packetId: 1"));
    EXPECT_LT(at("Protocol version: 560"), at("ResourcePackResponsePacket status: HAVE_ALL_PACKS"));
    EXPECT_LT(at("ResourcePackResponsePacket status: COMPLETED"), at("Bytes: 3"));
    EXPECT_LT(at("packetId: 113"), at("Player inizialized IP Steve"));
    EXPECT_LT(at("Player inizialized IP Steve"), static_cast<long>(lines.size()));
    auto quiet = std::make_shared<testing::RecordingPrinter>();
    QuietPrinter filter(quiet);
    for (const auto& line : lines) {
        EXPECT_NE(consoleLineKind(line), ConsoleLineKind::error) << line;
        filter.print(line);
    }
    auto kept = quiet->lines();
    ASSERT_EQ(kept.size(), 8u) << ::testing::PrintToString(kept);
    const ConsoleLineKind story[] = {ConsoleLineKind::start, ConsoleLineKind::start,    ConsoleLineKind::start,
                                     ConsoleLineKind::join,  ConsoleLineKind::join,     ConsoleLineKind::handOver,
                                     ConsoleLineKind::join,  ConsoleLineKind::stop};
    for (size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(consoleLineKindName(consoleLineKind(kept[i])), consoleLineKindName(story[i])) << kept[i];
    }
    EXPECT_EQ(kept[5], "IP 127.0.0.1:19133");
}

TEST(ConsoleLinesTest, FailuresAndUnknownLinesAreErrors) {
    for (const char* line : {"unavaliable: nowhere.invalid 19132", "bind: Address already in use (errno: 98)",
                             "Error unknown(host: \"x\")", "Type: MALFORMED Serv: ERROR Id: 11 Msg: x"}) {
        EXPECT_EQ(consoleLineKind(line), ConsoleLineKind::error) << line;
    }
}

}  // namespace
}  // namespace ferrylink::bridge
