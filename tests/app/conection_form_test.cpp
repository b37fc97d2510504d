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

// Where one press leads: the alert it raises, or the name check it asks
// (after cleaning) and the run it starts, or nothing at all. The page's
// journeys cover the alerts' texts; this covers the cleaning rules.
TEST_F(ConectionFormTest, EachPressLeadsToItsAlertOrItsCheckedRun) {
    const struct {
        const char* host;
        const char* port;
        bool resolves;
        const char* checked;  // what reaches the name check; "" for nothing
        const char* outcome;  // "run", "invalid", "java", "empty" or "silent"
    } presses[] = {
        {"HTTPS://Example.COM:19133/", "abc19132", true, "example.com 19132", "run"},
        {"10.0.0.1", "", true, "10.0.0.1 19132", "run"},
        {"example.com/x", "19132", false, "example.com/x 19132", "invalid"},  // no colon: the path stays
        {"http://https://x", "19132", false, "x 19132", "invalid"},  // the second test sees what the first left
        {"x.http://y", "19132", false, "x.http 19132", "invalid"},   // no prefix, nothing removed; the colon cuts
        {"2001:db8::1", "19132", false, "2001 19132", "invalid"},    // an IPv6 literal is cut at its first colon
        {":::", "19132", false, "::: 19132", "invalid"},             // no pieces: the colons stay
        {"  My Server.Example ", "19132", false, "myserver.example 19132", "invalid"},
        {"\u00C9COLE.example", "19132", false, "\u00E9cole.example 19132", "invalid"},
        {"10.0.0.1", "1234567", false, "10.0.0.1 123456", "invalid"},
        {"mc.HYPIXEL.net", "19132", true, "", "java"},
        {"blocked.example", "19132", true, "", "java"},
        {" http:// ", "19132", true, "", "empty"},
        {"api.backend.example", "19132", true, "", "silent"},
    };
    onMain([&] { blacklist_->servers.set({{"blocked.example"}}); });
    for (const auto& each : presses) {
        nameChecks_.clear();
        bridges_.built->clear();
        resolves_ = each.resolves;
        press(each.host, each.port);
        std::string outcome = "silent";
        std::vector<std::string> checked;
        onMain([&] {
            checked = nameChecks_;
            for (auto [flag, name] : {std::pair{&form_->invalidIp, "invalid"}, {&form_->hypixelAlert, "java"},
                                      {&form_->emptyIpAlert, "empty"}}) {
                if (flag->get()) {
                    outcome = name;
                    flag->set(false);
                }
            }
            if (runningServer_->server.get()) {
                outcome = "run";
                form_->runOrStop();  // Stop passes the same checks
            }
        });
        EXPECT_EQ(outcome, each.outcome) << each.host;
        EXPECT_EQ(checked, *each.checked ? std::vector<std::string>{each.checked} : std::vector<std::string>{})
            << each.host;
        ASSERT_TRUE(runMainUntil([&] { return serverState_->getUnchecked() == kServerNotRunning; }));
    }
}

// The fields keep what was typed; the run, the status line and the note to
// the backend get the cleaned values, an empty port shown and posted empty.
TEST_F(ConectionFormTest, StartRunsItsStepsInOrder) {
    press("HTTPS://Play.Example.NET:1/", "");
    EXPECT_EQ(*bridges_.events,
              (std::vector<std::string>{"keyboard", "construct", "printer", "postLog play.example.net ''", "start"}));
    auto bridge = lastBridge();
    EXPECT_EQ(bridge->arguments.transferHost, "play.example.net");
    EXPECT_EQ(bridge->arguments.transferPort, 19132);
    EXPECT_FALSE(bridge->arguments.oneTransfer);
    EXPECT_TRUE(bridge->arguments.resolveIp);
    EXPECT_EQ(bridge->printer, std::shared_ptr<raknet::Printer>(&form_->output(), [](auto*) {}));
    onMain([&] {
        EXPECT_EQ(bridge->group, groupModel_->group.get());
        EXPECT_EQ(serverState_->get(), "Server is running and will transfer to play.example.net:!");
        EXPECT_EQ(form_->info().ip.get(), "HTTPS://Play.Example.NET:1/");
    });
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

}  // namespace
}  // namespace ferrylink::app
