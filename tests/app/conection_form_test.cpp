#include "app/conection_form.h"

#include <gtest/gtest.h>

#include "app/backend_client.h"
#include "app_test_support.h"
#include "fake_bridge.h"

namespace ferrylink::app {
namespace {

using testing::FakeBridgeFactory;
using testing::onMain;
using testing::runMainUntil;

class ConectionFormTest : public ::testing::Test {
protected:
    ConectionFormTest() {
        onMain([&] {
            form_ = ConectionForm::make(ConectionForm::Environment{
                .info = std::make_shared<FormServerInfo>(),
                .runningServer = runningServer_,
                .groupModel = groupModel_,
                .blacklist = blacklist_,
                .serverState = serverState_,
                .bridgeFactory = bridges_.factory(),
                .postLog =
                    [this](const std::string& host, const std::string& port) {
                        bridges_.events->push_back("postLog " + host + " '" + port + "'");
                    },
                .nameCheck =
                    [this](const std::string& host, const std::string& port) {
                        nameChecks_.push_back(host + " " + port);
                        return resolves_;
                    },
                .backendHost = "backend.example",
                .bridgeHost = "127.0.0.1",
                .bridgePort = 0,
                .dismissKeyboard = [this] { bridges_.events->push_back("keyboard"); },
            });
        });
    }

    // Presses the button with the fields holding `ip` and `port`.
    void press(const std::string& ip, const std::string& port) {
        onMain([&] {
            form_->info().ip.set(ip);
            form_->info().port.set(port);
            form_->runOrStop();
        });
    }

    std::shared_ptr<testing::FakeBridge> lastBridge() { return bridges_.built->empty() ? nullptr : bridges_.built->back(); }
    bool running() {
        bool present = false;
        onMain([&] { present = runningServer_->server.get() != nullptr; });
        return present;
    }

    FakeBridgeFactory bridges_;
    std::shared_ptr<RunningServerModel> runningServer_ = std::make_shared<RunningServerModel>();
    std::shared_ptr<EventLoopGroupModel> groupModel_ = std::make_shared<EventLoopGroupModel>();
    std::shared_ptr<BlacklistServers> blacklist_ =
        BlacklistServers::make(std::make_shared<BackendSession>(BackendEndpoint{"backend.example", 1, std::nullopt}));
    std::shared_ptr<Observable<std::string>> serverState_ = std::make_shared<Observable<std::string>>(kServerNotRunning);
    std::vector<std::string> nameChecks_;
    bool resolves_ = true;
    std::shared_ptr<ConectionForm> form_;
};

TEST_F(ConectionFormTest, CleansSchemeCaseAndTypedPort) {
    press("HTTPS://Example.COM:19133/", "abc19132");
    EXPECT_EQ(nameChecks_, std::vector<std::string>{"example.com 19132"});
    auto bridge = lastBridge();
    ASSERT_TRUE(bridge);
    EXPECT_EQ(bridge->arguments.transferHost, "example.com");
    EXPECT_EQ(bridge->arguments.transferPort, 19132);
    onMain([&] {
        EXPECT_EQ(serverState_->get(), "Server is running and will transfer to example.com:19132!");
        // The fields keep what the user typed.
        EXPECT_EQ(form_->info().ip.get(), "HTTPS://Example.COM:19133/");
        EXPECT_EQ(form_->info().port.get(), "abc19132");
    });
}

// What reaches the name check; none of these resolves, so each ends in the
// invalid address alert.
TEST_F(ConectionFormTest, CleaningExamples) {
    const struct {
        const char* host;
        const char* port;
        const char* checked;
    } examples[] = {
        {"example.com/x", "19132", "example.com/x 19132"},  // no colon: the path stays
        {"http://https://x", "19132", "x 19132"},           // the second test sees what the first left
        {"x.http://y", "19132", "x.http 19132"},            // no prefix, nothing removed; the colon still cuts
        {"2001:db8::1", "19132", "2001 19132"},             // an IPv6 literal is cut at its first colon
        {":::", "19132", "::: 19132"},                      // no pieces: the colons stay
        {"  My Server.Example ", "19132", "myserver.example 19132"},
        {"\u00C9COLE.example", "19132", "\u00E9cole.example 19132"},
        {"10.0.0.1", "1234567", "10.0.0.1 123456"},
    };
    resolves_ = false;
    for (const auto& example : examples) {
        nameChecks_.clear();
        bool alert = false;
        press(example.host, example.port);
        onMain([&] {
            alert = form_->invalidIp.get();
            form_->invalidIp.set(false);
        });
        EXPECT_EQ(nameChecks_, std::vector<std::string>{example.checked}) << example.host;
        EXPECT_TRUE(alert) << example.host;
    }
    EXPECT_FALSE(running());
}

TEST_F(ConectionFormTest, EmptyPortTransfersTo19132ButShowsAndPostsEmpty) {
    press("10.0.0.1", "");
    EXPECT_EQ(nameChecks_, std::vector<std::string>{"10.0.0.1 19132"});
    EXPECT_EQ(lastBridge()->arguments.transferPort, 19132);
    onMain([&] { EXPECT_EQ(serverState_->get(), "Server is running and will transfer to 10.0.0.1:!"); });
    EXPECT_EQ(bridges_.events->at(3), "postLog 10.0.0.1 ''");
}

TEST_F(ConectionFormTest, StartRunsItsStepsInOrder) {
    press("play.example.net", "19133");
    EXPECT_EQ(*bridges_.events, (std::vector<std::string>{"keyboard", "construct", "printer",
                                                          "postLog play.example.net '19133'", "start"}));
    auto bridge = lastBridge();
    EXPECT_FALSE(bridge->arguments.oneTransfer);
    EXPECT_TRUE(bridge->arguments.resolveIp);
    EXPECT_EQ(bridge->arguments.hostPort, 0);
    EXPECT_EQ(bridge->arguments.hostIp, "127.0.0.1");
    EXPECT_EQ(bridge->printer, std::shared_ptr<raknet::Printer>(&form_->output(), [](auto*) {}));
    onMain([&] { EXPECT_EQ(bridge->group, groupModel_->group.get()); });
}

TEST_F(ConectionFormTest, ARunThatFindsNoPortShowsWhyAndIsNotRunning) {
    *bridges_.startFailure = "Another Ferrylink is already listening on UDP port 19132.";
    press("10.0.0.1", "19132");
    onMain([&] {
        EXPECT_EQ(runningServer_->server.get(), nullptr);
        EXPECT_EQ(serverState_->get(), kServerNotRunning);
        EXPECT_TRUE(form_->bindFailedAlert.get());
        EXPECT_EQ(form_->bindFailure.get(), "Another Ferrylink is already listening on UDP port 19132.");
    });
    EXPECT_EQ(lastBridge()->stops, 0);
}

TEST_F(ConectionFormTest, EmptyHostTogglesItsAlert) {
    bool afterFirst = false;
    bool afterSecond = true;
    press(" http:// ", "19132");
    onMain([&] { afterFirst = form_->emptyIpAlert.get(); });
    press("", "19132");
    onMain([&] { afterSecond = form_->emptyIpAlert.get(); });
    EXPECT_TRUE(afterFirst);
    EXPECT_FALSE(afterSecond);
    EXPECT_TRUE(nameChecks_.empty());
}

TEST_F(ConectionFormTest, JavaNetworkAndBlocklistedHostsGetTheJavaAlert) {
    onMain([&] { blacklist_->servers.set({{"blocked.example"}}); });
    for (const char* host : {"mc.HYPIXEL.net", "blocked.example"}) {
        bool alert = false;
        press(host, "19132");
        onMain([&] {
            alert = form_->hypixelAlert.get();
            form_->hypixelAlert.set(false);
        });
        EXPECT_TRUE(alert) << host;
    }
    EXPECT_TRUE(nameChecks_.empty());
    EXPECT_FALSE(running());
}

TEST_F(ConectionFormTest, BackendHostIsRefusedWithoutAWord) {
    press("api.backend.example", "19132");
    onMain([&] {
        EXPECT_FALSE(form_->emptyIpAlert.get());
        EXPECT_FALSE(form_->hypixelAlert.get());
        EXPECT_FALSE(form_->invalidIp.get());
    });
    EXPECT_TRUE(nameChecks_.empty());
    EXPECT_TRUE(bridges_.events->empty());
}

TEST_F(ConectionFormTest, StopWithAnEmptiedFieldShowsTheAlertAndKeepsRunning) {
    press("10.0.0.1", "19132");
    ASSERT_TRUE(running());
    bool alert = false;
    press("", "19132");
    onMain([&] { alert = form_->emptyIpAlert.get(); });
    EXPECT_TRUE(alert);
    EXPECT_TRUE(running());
    EXPECT_EQ(lastBridge()->stops, 0);
}

TEST_F(ConectionFormTest, StopThenCloseReportsNotRunning) {
    press("10.0.0.1", "19132");
    auto bridge = lastBridge();
    std::string statusAfterStop;
    onMain([&] {
        form_->output().consoleOutput.set({"left over"});
        form_->runOrStop();
        EXPECT_EQ(runningServer_->server.get(), nullptr);
        EXPECT_TRUE(form_->output().consoleOutput.get().empty());
        // Stop leaves the status line to the bridge's close handler.
        statusAfterStop = serverState_->get();
    });
    EXPECT_EQ(bridge->stops, 1);
    EXPECT_EQ(statusAfterStop, "Server is running and will transfer to 10.0.0.1:19132!");
    ASSERT_TRUE(runMainUntil([&] { return serverState_->getUnchecked() == kServerNotRunning; }));
}

TEST_F(ConectionFormTest, LateCloseOfAnOldRunDropsTheNewOne) {
    *bridges_.closeOnStop = false;
    press("10.0.0.1", "19132");
    auto first = lastBridge();
    press("10.0.0.1", "19132");  // stop: the close step has not run yet
    press("10.0.0.2", "19132");  // a new run starts meanwhile
    ASSERT_TRUE(running());
    first->close();
    ASSERT_TRUE(runMainUntil([&] { return runningServer_->server.getUnchecked() == nullptr; }));
    onMain([&] { EXPECT_EQ(serverState_->get(), kServerNotRunning); });
}

TEST_F(ConectionFormTest, StoppedBridgeIsNotStoppedTwice) {
    *bridges_.closeOnStop = false;
    press("10.0.0.1", "19132");
    auto bridge = lastBridge();
    onMain([&] { bridge->stop(); });  // shutting down, its close step still to come
    press("10.0.0.1", "19132");
    EXPECT_EQ(bridge->stops, 1);
    EXPECT_FALSE(running());
}

TEST(ResolverNameCheck, NumericAddressesOfBothFamiliesPass) {
    EXPECT_TRUE(resolverNameCheck("127.0.0.1", "19132"));
    EXPECT_TRUE(resolverNameCheck("::1", "19132"));
}

}  // namespace
}  // namespace ferrylink::app
