#include "app/app_core.h"

#include <gtest/gtest.h>

#include "app_test_support.h"
#include "backend/backend_server.h"
#include "backend/store.h"
#include "backend/test_certificate.h"
#include "fake_bridge.h"
#include "foundation/clock.h"

namespace ferrylink::app {
namespace {

using ferrylink::testing::TestCertificate;
using testing::drainMain;
using testing::FakeBridgeFactory;
using testing::numericNameCheck;
using testing::onMain;
using testing::runMainUntil;
using testing::ScratchDirectory;

class AppCoreTest : public ::testing::Test {
protected:
    AppCoreTest()
        : backendStore_(":memory:"),
          backend_(backendStore_, TestCertificate::shared().serverCertificate(),
                   TestCertificate::shared().serverKey()) {}

    AppConfig config() {
        AppConfig config;
        config.backendHost = "127.0.0.1";
        config.backendPort = backend_.port();
        config.backendCaFile = TestCertificate::shared().caCertificate();
        config.dataDirectory = scratch_.path();
        config.bridgeHost = "127.0.0.1";
        config.bridgePort = 0;
        config.nameCheck = numericNameCheck;
        config.localNetworkAddresses = std::vector<std::string>{};
        return config;
    }

    // A launch of the app: a new core over the same data folder.
    std::unique_ptr<AppCore> launchApp() {
        auto core = std::make_unique<AppCore>(config(), bridges_.factory());
        core->setScreenHooks(ScreenHooks{
            .dismissKeyboard = [this] { screen_.push_back("keyboard"); },
            .scrollConnectViewTo = [this](int item) { screen_.push_back("scroll " + std::to_string(item)); },
            .requestReview = [this] { ++reviewPrompts_; },
        });
        onMain([&] { core->launch(); });
        return core;
    }

    std::optional<PendingMessage> launchAndAnswerMessage(bool dismissForGood);

    ScratchDirectory scratch_;
    backend::Store backendStore_;
    backend::BackendServerThread backend_;
    FakeBridgeFactory bridges_;
    std::vector<std::string> screen_;
    int reviewPrompts_ = 0;
};

TEST_F(AppCoreTest, ReviewPromptComesAtTheEleventhAppearanceThenEveryTenth) {
    auto app = launchApp();
    std::vector<int> promptedAt;
    onMain([&] {
        for (int appearance = 1; appearance <= 31; ++appearance) {
            int before = reviewPrompts_;
            app->countLaunchAndMaybeAskForReview();
            if (reviewPrompts_ != before) {
                promptedAt.push_back(appearance);
            }
        }
    });
    EXPECT_EQ(promptedAt, (std::vector<int>{11, 21, 31}));
    // Without a window to prompt in, the counter resets all the same.
    auto windowless = std::make_unique<AppCore>(config(), bridges_.factory());
    onMain([&] {
        windowless->defaults().setInteger(kReviewCounterKey, 10);
        windowless->countLaunchAndMaybeAskForReview();
        EXPECT_EQ(windowless->defaults().integer(kReviewCounterKey), 1);
    });
}

// One launch that shows AppView: the message it presents, if any, answered
// with "Don't show this message again" or with "Ok".
std::optional<PendingMessage> AppCoreTest::launchAndAnswerMessage(bool dismissForGood) {
    auto app = launchApp();
    onMain([&] { app->appViewAppeared(); });
    EXPECT_TRUE(runMainUntil([&] { return app->messages().fetched(); }));
    drainMain();
    std::optional<PendingMessage> pending;
    onMain([&] {
        pending = app->pendingMessage().get();
        EXPECT_EQ(app->messageAlert().get(), pending.has_value());
        if (pending && dismissForGood) {
            EXPECT_FALSE(app->dismissMessageForGood("not the key"));
            EXPECT_TRUE(app->dismissMessageForGood(pending->key));
            EXPECT_EQ(app->pendingMessage().get(), std::nullopt);
        }
    });
    return pending;
}

TEST_F(AppCoreTest, MessageShowsAtEachLaunchUntilDismissedForGood) {
    backendStore_.addMessage("1.19.50", "Hello");
    auto first = launchAndAnswerMessage(/*dismissForGood=*/false);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->key, "SGVsbG8=");
    EXPECT_EQ(first->message.message, "Hello");
    EXPECT_EQ(first->message.version, "1.19.50");
    EXPECT_TRUE(launchAndAnswerMessage(/*dismissForGood=*/true));
    EXPECT_FALSE(launchAndAnswerMessage(/*dismissForGood=*/true));

    backendStore_.addMessage("1.19.50", "Hello!");  // newest first: the reworded one leads
    auto reworded = launchAndAnswerMessage(/*dismissForGood=*/false);
    ASSERT_TRUE(reworded);
    EXPECT_EQ(reworded->key, AppCore::messageKey("Hello!"));
}

TEST_F(AppCoreTest, FeaturedSwitchIsRememberedAndRefreshesWithinItsRule) {
    backend::PartneredServer partner;
    partner.ip = "play.example.net";
    partner.title = "Example";
    backendStore_.addPartner(partner);
    {
        auto app = launchApp();
        onMain([&] {
            EXPECT_TRUE(app->featuredModel().featured.get());
            EXPECT_FALSE(app->defaults().object(FeaturedModel::key));
            app->connectViewAppeared();
        });
        ASSERT_TRUE(runMainUntil([&] { return app->partnered().lastFetch() != -1; }));
        onMain([&] {
            app->toggleFeatured();
            EXPECT_FALSE(app->featuredModel().featured.get());
            EXPECT_EQ(app->defaults().object(FeaturedModel::key), DefaultsValue(false));
            app->toggleFeatured();  // on again within 5 seconds of the good fetch
            EXPECT_EQ(app->backendSession().requestsStarted(), 1u);
            EXPECT_EQ(app->partnered().servers.get().size(), 1u);
            app->toggleFeatured();
        });
    }
    auto app = launchApp();
    foundation::Clock::advance(PartneredServers::refreshIntervalMillis + 1);
    onMain([&] {
        EXPECT_FALSE(app->featuredModel().featured.get());
        app->connectViewAppeared();
        EXPECT_EQ(app->backendSession().requestsStarted(), 0u);
        // The scene's activation fetches all the same.
        app->scenePhaseChanged(ScenePhase::active);
        EXPECT_EQ(app->backendSession().requestsStarted(), 1u);
    });
}

TEST_F(AppCoreTest, BackgroundWithoutServerOnlySaves) {
    auto app = launchApp();
    onMain([&] {
        app->scenePhaseChanged(ScenePhase::active);
        auto server = app->persistentStore().viewContext().newServer();
        server->setIp("unsaved.example");
        server->setPort("1");
        auto group = app->groupModel().group.get();
        app->scenePhaseChanged(ScenePhase::background);
        EXPECT_EQ(app->groupModel().group.get(), group);
        EXPECT_FALSE(app->persistentStore().viewContext().hasChanges());
    });
}

TEST_F(AppCoreTest, InactiveReplacesTheGroupAndBackgroundEndsTheRunButTheFieldsKeepTheirText) {
    auto app = launchApp();
    std::shared_ptr<ConectionForm> form;
    onMain([&] {
        app->scenePhaseChanged(ScenePhase::active);
        form = app->makeConectionForm();
        form->info().ip.set("10.0.0.1");
        form->info().port.set("19133");
        form->runOrStop();
        auto group = app->groupModel().group.get();
        app->scenePhaseChanged(ScenePhase::inactive);
        app->scenePhaseChanged(ScenePhase::active);
        EXPECT_NE(app->groupModel().group.get(), group);
        ASSERT_TRUE(app->runningServer().server.get());
        // A repeated report of the same phase is no change.
        group = app->groupModel().group.get();
        app->scenePhaseChanged(ScenePhase::active);
        EXPECT_EQ(app->groupModel().group.get(), group);

        app->scenePhaseChanged(ScenePhase::inactive);
        app->scenePhaseChanged(ScenePhase::background);
        EXPECT_EQ(app->runningServer().server.get(), nullptr);
        EXPECT_NE(app->groupModel().group.get(), group);
        EXPECT_EQ(bridges_.built->back()->stops, 1);
    });
    ASSERT_TRUE(runMainUntil([&] { return app->serverState().getUnchecked() == kServerNotRunning; }));
    onMain([&] {
        app->scenePhaseChanged(ScenePhase::active);
        EXPECT_EQ(app->runningServer().server.get(), nullptr);
        EXPECT_EQ(form->info().ip.get(), "10.0.0.1");
        EXPECT_EQ(form->info().port.get(), "19133");
    });
}

TEST_F(AppCoreTest, FavouritesAreAddedAsTypedPickedAndDeleted) {
    auto app = launchApp();
    FormServerInfo info;
    onMain([&] {
        auto empty = app->addToFavorites("", "");
        auto typed = app->addToFavorites("http://x:1", "1");
        EXPECT_EQ(empty.ip, "");
        EXPECT_EQ(empty.port, "19132");
        EXPECT_EQ(typed.ip, "http://x:1");
        screen_.clear();
        info.port.set("");
        EXPECT_TRUE(app->pickFavourite(empty.id, info));
        EXPECT_EQ(info.port.get(), "19132");
        EXPECT_EQ(screen_, (std::vector<std::string>{"keyboard", "scroll 2"}));
        EXPECT_TRUE(app->deleteFavourite(typed.id));
        EXPECT_FALSE(app->deleteFavourite(typed.id));
        EXPECT_FALSE(app->pickFavourite(typed.id, info));
    });
    drainMain();
    onMain([&] { EXPECT_EQ(app->favourites().get().size(), 1u); });
    auto relaunched = launchApp();
    onMain([&] {
        ASSERT_EQ(relaunched->favourites().get().size(), 1u);
        EXPECT_EQ(relaunched->favourites().get()[0].ip, "");
    });
}

TEST_F(AppCoreTest, PickingThePlaceholderFillsTheFormKeyboardLast) {
    auto app = launchApp();
    FormServerInfo info;
    onMain([&] {
        app->partnered().servers.set({partneredPlaceholder()});
        screen_.clear();
        app->pickPartnered(0, info);
        EXPECT_EQ(info.ip.get(), "0.0.0.0");
        EXPECT_EQ(info.port.get(), "19132");
        EXPECT_EQ(screen_, (std::vector<std::string>{"scroll 2", "keyboard"}));
    });
}

TEST_F(AppCoreTest, PartneredRowPastTheEndIsFatal) {
    auto app = launchApp();
    EXPECT_DEATH(onMain([&] {
                     FormServerInfo info;
                     app->pickPartnered(0, info);
                 }),
                 "past the end");
}

}  // namespace
}  // namespace ferrylink::app
