#include "app/app_core.h"

#include <gtest/gtest.h>

#include "app_test_support.h"
#include "fake_bridge.h"

namespace ferrylink::app {
namespace {

using testing::FakeBridgeFactory;
using testing::onMain;
using testing::runMainUntil;
using testing::ScratchDirectory;

class AppCoreTest : public ::testing::Test {
protected:
    std::unique_ptr<AppCore> launchApp() {
        auto core = std::make_unique<AppCore>(testing::testConfig(scratch_.path()), bridges_.factory());
        ScreenHooks hooks;
        hooks.requestReview = [this] { ++reviewPrompts_; };
        core->setScreenHooks(std::move(hooks));
        onMain([&] { core->launch(); });
        return core;
    }

    ScratchDirectory scratch_;
    FakeBridgeFactory bridges_;
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
    auto windowless = std::make_unique<AppCore>(testing::testConfig(scratch_.path()), bridges_.factory());
    onMain([&] {
        windowless->defaults().setInteger(kReviewCounterKey, 10);
        windowless->countLaunchAndMaybeAskForReview();
        EXPECT_EQ(windowless->defaults().integer(kReviewCounterKey), 1);
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

TEST_F(AppCoreTest, InactiveReplacesTheGroupAndBackgroundEndsTheRun) {
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
    // The fields keeping their text and the page's Run are the browser journey's.
    ASSERT_TRUE(runMainUntil([&] { return app->serverState().getUnchecked() == kServerNotRunning; }));
}

}  // namespace
}  // namespace ferrylink::app
