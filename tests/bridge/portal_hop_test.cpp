#include "bridge/portal_hop.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "bridge/client_pe.h"
#include "bridge/resource_bundle.h"
#include "foundation/clock.h"
#include "raknet/client.h"
#include "running_bridge.h"

namespace ferrylink::bridge {
namespace {

using testing::RunningBridge;

// A loopback UDP socket held without SO_REUSEADDR, so a bind of its port fails.
class HeldPort {
public:
    explicit HeldPort(uint16_t port = 0) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        bound_ = ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        socklen_t length = sizeof(address);
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    HeldPort(HeldPort&& other) noexcept
        : fd_(std::exchange(other.fd_, -1)), bound_(other.bound_), port_(other.port_) {}
    ~HeldPort() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    bool bound() const { return bound_; }
    uint16_t port() const { return port_; }

private:
    int fd_;
    bool bound_ = false;
    uint16_t port_ = 0;
};

TEST(PortalHopTest, StartPrintsWhereItListensAndWhereItTransfers) {
    RunningBridge bridge("play.example.net", 19133);
    EXPECT_TRUE(bridge.printer->contains("Server running and listening on 127.0.0.1:0"));
    EXPECT_TRUE(bridge.printer->contains("Server will transfer to play.example.net:19133"));
    EXPECT_TRUE(bridge.hop->isRunning());
    EXPECT_EQ(bridge.hop->serverQueue.label(), "org.norvane.portalhop.serial.queue");
    // The listener put its own id into the shared advert.
    EXPECT_EQ(bridge.info->serverId, bridge.hop->listener()->id);
}

TEST(PortalHopTest, StopClosesOnceAndCallsTheHandler) {
    RunningBridge bridge;
    bridge.hop->stop();
    ASSERT_TRUE(bridge.closes->waitClosed());
    EXPECT_FALSE(bridge.hop->isRunning());
    EXPECT_EQ(bridge.printer->count("Server shutting down!"), 1u);
    EXPECT_EQ(bridge.closes->count(), 1);
    EXPECT_FALSE(bridge.hop->listener());
}

// A held port whose neighbour above is free.
HeldPort holdPortBelowAFreeOne() {
    for (int attempt = 0; attempt < 20; ++attempt) {
        HeldPort held;
        if (HeldPort(held.port() + 1).bound()) {
            return held;
        }
    }
    ADD_FAILURE() << "no free pair of ports";
    return HeldPort();
}

TEST(PortalHopTest, TakenPortFallsBackToTheOneAboveAndStillNamesTheFirst) {
    HeldPort held = holdPortBelowAFreeOne();
    const std::string port = std::to_string(held.port());
    const std::string above = std::to_string(held.port() + 1);
    RunningBridge bridge("localhost", 19132, false, true, held.port());
    EXPECT_EQ(bridge.port(), held.port() + 1);
    EXPECT_TRUE(bridge.printer->contains("Server running and listening on 127.0.0.1:" + port));
    EXPECT_TRUE(bridge.printer->contains("Listening on UDP 127.0.0.1:" + above + " (port " + port + " is taken)"));
    EXPECT_TRUE(bridge.printer->waitForPrefix("bind: Address already in use"));
}

TEST(PortalHopTest, BothPortsTakenEndTheRunInStartWithTheReason) {
    HeldPort held = holdPortBelowAFreeOne();
    HeldPort above(held.port() + 1);
    RunningBridge bridge("localhost", 19132, false, true, held.port());
    EXPECT_FALSE(bridge.outcome.listening);
    EXPECT_EQ(bridge.outcome.failure, "Could not listen on UDP port " + std::to_string(held.port()) + " or " +
                                          std::to_string(above.port()) + ": bind: Address already in use (errno: 98)");
    EXPECT_EQ(bridge.hop->failure(), bridge.outcome.failure);
    EXPECT_FALSE(bridge.hop->isRunning());
    EXPECT_TRUE(bridge.printer->contains("Server will transfer to localhost:19132"));
}

TEST(PortalHopTest, ARunStartedAsTheLastStopsGetsItsPort) {
    RunningBridge first;
    int port = first.port();
    first.hop->stop();
    RunningBridge second("localhost", 19132, false, true, port);
    EXPECT_EQ(second.port(), port);
}

TEST(PortalHopTest, ASocketClosedUnderTheBridgeEndsTheRun) {
    RunningBridge bridge;
    bridge.hop->listener()->channel->close();
    ASSERT_TRUE(bridge.closes->waitClosed());
    EXPECT_FALSE(bridge.hop->isRunning());
    EXPECT_EQ(bridge.hop->failure(), "The bridge's socket closed.");
    EXPECT_TRUE(bridge.printer->contains("Server shutting down!"));
}

TEST(ResourceBundleTest, FirstCandidateHoldingTheBundleWins) {
    auto root = std::filesystem::temp_directory_path() / ("ferrylink-bundle-" + std::to_string(::getpid()));
    std::filesystem::create_directories(root / "second" / ResourceBundle::bundleName);
    std::filesystem::create_directories(root / "third" / ResourceBundle::bundleName);
    auto found = ResourceBundle::find({root / "missing", root / "second", root / "third"});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->folder(), root / "second" / ResourceBundle::bundleName);
    EXPECT_FALSE(ResourceBundle::find({root / "missing"}));
    EXPECT_FALSE(found->pathForResource("biome_definitions", "nbt"));
    std::filesystem::remove_all(root);
}

TEST(ClientPeTest, PingOfARunningBridgeGivesItsAdvert) {
    RunningBridge bridge;
    auto probe = std::make_shared<ClientPe>(0, "127.0.0.1");
    auto printer = std::make_shared<testing::RecordingPrinter>();
    probe->setPrinter(printer);
    probe->start(bridge.group);
    EXPECT_EQ(probe->serverQueue.label(), "org.norvane.clientrpe.serial.queue");

    auto info = probe->ping("127.0.0.1", bridge.port()).wait();
    EXPECT_EQ(info->motd, "Ferrylink");
    EXPECT_EQ(info->name, "Join me!");
    EXPECT_EQ(info->protocolVersion, 560);
    EXPECT_EQ(info->maxPlayers, 99);

    probe->stop();
    EXPECT_TRUE(printer->waitFor("Server shutting down!"));
    EXPECT_FALSE(probe->isRunning());
}

TEST(ClientPeTest, UnknownHostFailsAtOnceWithMsg) {
    auto group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    auto probe = std::make_shared<ClientPe>(0, "127.0.0.1");
    probe->setPrinter(std::make_shared<testing::RecordingPrinter>());
    probe->start(group);
    auto future = probe->ping("nowhere.invalid", 19132);
    try {
        future.wait();
        ADD_FAILURE() << "an unknown host gave an advert";
    } catch (const raknet::TimeoutError& error) {
        EXPECT_EQ(error.message, "msg");
    }
    probe->stop();
    group->syncShutdownGracefully();
}

}  // namespace
}  // namespace ferrylink::bridge
