// The scene phase that the open pages make together, and how long a page is
// remembered. The timing of the background and a reload's keeping of the run
// are the browser journeys' to check.

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

TEST(ScenePhaseTest, APageIsForgottenThirtySecondsAfterItsLastStream) {
    testing::WebTestApp app;
    std::shared_ptr<WebSession> session;
    auto stream = std::make_shared<EventStream>();
    onMain([&] {
        session = WebSession::make(*app.core);
        session->start();
        session->openStream("page-a", stream);
        session->closeStream("page-a", stream);
    });
    Clock::advance(29000);
    drainMain();
    size_t pages = 0;
    onMain([&] { pages = session->pageCount(); });
    EXPECT_EQ(pages, 1u);

    // A new stream within the time keeps the record, flags and all.
    auto again = std::make_shared<EventStream>();
    onMain([&] { session->openStream("page-a", again); });
    Clock::advance(5000);
    drainMain();
    onMain([&] { pages = session->pageCount(); });
    EXPECT_EQ(pages, 1u);

    onMain([&] { session->closeStream("page-a", again); });
    Clock::advance(30000);
    EXPECT_TRUE(runMainUntil([&] { return session->pageCount() == 0; }));
    onMain([&] { session->stop(); });
}

}  // namespace
}  // namespace ferrylink::app
