// The scene phase that the open pages make together: visible pages decide
// it at once, the background waits two seconds, and a reload is no trip to
// the background.

#include <gtest/gtest.h>

#include "app/web/web_session.h"
#include "foundation/clock.h"
#include "web_test_support.h"

namespace ferrylink::app {
namespace {

using foundation::Clock;
using testing::drainMain;
using testing::onMain;
using testing::runMainUntil;

TEST(SomePageVisibleTest, AnOpenStreamCountsUntilItsPageReportsHidden) {
    using R = PageReport;
    struct Case {
        std::vector<PageVisibility> pages;
        bool visible;
    };
    std::vector<Case> cases = {
        {{}, false},
        {{{true, R::visible}}, true},
        {{{true, std::nullopt}}, true},
        {{{true, R::hidden}}, false},
        {{{false, R::visible}}, false},
        {{{true, R::hidden}, {true, R::visible}}, true},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(somePageVisible(cases[i].pages), cases[i].visible) << "case " << i;
    }
}

class ScenePhaseTest : public ::testing::Test {
protected:
    ScenePhaseTest() {
        onMain([&] {
            session_ = WebSession::make(*app_.core);
            session_->start();
        });
    }
    ~ScenePhaseTest() override {
        onMain([&] { session_->stop(); });
    }

    ScenePhase phase() {
        ScenePhase current{};
        onMain([&] { current = app_.core->scenePhase().get(); });
        return current;
    }

    std::shared_ptr<EventStream> open(const std::string& page) {
        auto stream = std::make_shared<EventStream>();
        onMain([&] { session_->openStream(page, stream); });
        return stream;
    }

    void startRun() {
        onMain([&] { session_->runOrStop("127.0.0.1", "19132"); });
        ASSERT_EQ(app_.bridges.built->size(), 1u);
    }

    std::shared_ptr<foundation::MultiThreadedEventLoopGroup> group() {
        std::shared_ptr<foundation::MultiThreadedEventLoopGroup> current;
        onMain([&] { current = app_.core->groupModel().group.get(); });
        return current;
    }

    bool serverPresent() {
        bool present = false;
        onMain([&] { present = app_.core->runningServer().server.get() != nullptr; });
        return present;
    }

    testing::WebTestApp app_;
    std::shared_ptr<WebSession> session_;
};

TEST_F(ScenePhaseTest, HiddenPagesTurnToBackgroundOnlyAfterTwoSecondsAndStopTheRun) {
    auto stream = open("page-a");
    onMain([&] { session_->reportScene("page-a", PageReport::visible); });
    startRun();

    onMain([&] { session_->reportScene("page-a", PageReport::hidden); });
    Clock::advance(1900);
    drainMain();
    drainMain();
    EXPECT_EQ(phase(), ScenePhase::active);
    EXPECT_TRUE(serverPresent());

    Clock::advance(100);
    EXPECT_TRUE(runMainUntil([&] { return app_.core->scenePhase().getUnchecked() == ScenePhase::background; }));
    EXPECT_FALSE(serverPresent());
    EXPECT_EQ(app_.bridges.built->front()->stops, 1);
}

TEST_F(ScenePhaseTest, AReloadKeepsTheRunAndItsEventLoopGroup) {
    EXPECT_EQ(phase(), ScenePhase::background);
    auto before = open("old-page");
    EXPECT_EQ(phase(), ScenePhase::active);
    onMain([&] { session_->reportScene("old-page", PageReport::visible); });
    startRun();
    auto runGroup = group();

    // The old page goes: its last report, then its stream. The new page's
    // stream comes before its first report.
    onMain([&] {
        session_->reportScene("old-page", PageReport::hidden);
        session_->closeStream("old-page", before);
    });
    auto after = open("new-page");
    EXPECT_EQ(phase(), ScenePhase::active);
    onMain([&] { session_->reportScene("new-page", PageReport::visible); });

    Clock::advance(5000);
    drainMain();
    drainMain();
    EXPECT_EQ(phase(), ScenePhase::active);
    EXPECT_TRUE(serverPresent());
    EXPECT_EQ(group(), runGroup);
    EXPECT_EQ(app_.bridges.built->front()->stops, 0);
}

TEST_F(ScenePhaseTest, APageIsForgottenThirtySecondsAfterItsLastStream) {
    auto stream = open("page-a");
    onMain([&] { session_->closeStream("page-a", stream); });
    Clock::advance(29000);
    drainMain();
    size_t pages = 0;
    onMain([&] { pages = session_->pageCount(); });
    EXPECT_EQ(pages, 1u);

    // A new stream within the time keeps the record, flags and all.
    auto again = open("page-a");
    Clock::advance(5000);
    drainMain();
    onMain([&] { pages = session_->pageCount(); });
    EXPECT_EQ(pages, 1u);

    onMain([&] { session_->closeStream("page-a", again); });
    Clock::advance(30000);
    EXPECT_TRUE(runMainUntil([&] { return session_->pageCount() == 0; }));
}

}  // namespace
}  // namespace ferrylink::app
