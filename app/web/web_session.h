#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/app_core.h"
#include "app/web/event_stream.h"

namespace ferrylink::app {

// What a page says of itself: seen, or not seen. Focus plays no part: a page
// that can be seen is in the foreground, as an app on a phone's screen is.
enum class PageReport { visible, hidden };

std::optional<PageReport> pageReportNamed(std::string_view name);

// Whether `text` can name a page: 1 to 64 of [A-Za-z0-9_-].
bool isPageId(std::string_view text);

// One alert flag of the form, by the name the page uses for it.
AlertFlag* alertFlagNamed(ConectionForm& form, std::string_view name);

// How one page is seen by the phase rule.
struct PageVisibility {
    bool streamOpen = false;
    std::optional<PageReport> report;  // none before its first report
};

// Whether some page can be seen: its stream is open and it hasn't reported
// itself hidden (one that hasn't reported yet counts as seen).
bool somePageVisible(std::span<const PageVisibility> pages);

struct WebSessionTimings {
    // How long no page may be visible before the app goes to the background.
    std::chrono::milliseconds backgroundGrace{2000};
    // How long a page's record outlives its last stream.
    std::chrono::milliseconds forgetPage{30000};
};

// The app's side of the page contract: the app's one connection form, whose
// fields, alerts and status every page shows alike; one record per open page
// (its streams and its visibility); the models turned into events for every
// open stream; and the scene phase that the pages make together.
//
// Everything here runs on the main queue, where the models live; the HTTP
// threads reach it by queueing blocks and see only the text it pushes into
// each EventStream.
class WebSession : public std::enable_shared_from_this<WebSession> {
public:
    // `core` must outlive the session and be launched already.
    static std::shared_ptr<WebSession> make(AppCore& core, WebSessionTimings timings = {});
    ~WebSession();
    WebSession(const WebSession&) = delete;
    WebSession& operator=(const WebSession&) = delete;

    // Subscribes to the core's models. Main queue only, as is all below.
    void start();
    // Unsubscribes and ends every open stream.
    void stop();

    // A stream of `page` opens: it gets the whole state first, in the
    // contract's order, then every change. The first stream of a page stands
    // for the first appearance of its screens.
    void openStream(const std::string& page, std::shared_ptr<EventStream> stream);
    void closeStream(const std::string& page, const std::shared_ptr<EventStream>& stream);

    // The form's fields as typed on some page.
    void setFields(const std::string& ip, const std::string& port);
    // The button, with the fields as they stand on the page that pressed it.
    void runOrStop(const std::string& ip, const std::string& port);
    // Resets the flag an alert presented; false for an unknown name.
    bool dismissAlert(std::string_view alert);
    ServerRow addToFavorites(const std::string& ip, const std::string& port);
    bool deleteFavourite(uint64_t id);
    // The switch goes to `featured`; nothing when it stands there already.
    void setFeatured(bool featured);
    bool dismissMessageForGood(const std::string& key);
    // The connection screen came back into view on this page.
    void connectViewAppeared(const std::string& page);
    void reportScene(const std::string& page, PageReport report);

    // For tests: the pages with a record, and their open streams.
    size_t pageCount() const { return pages_.size(); }
    size_t streamCount() const;

private:
    struct Page;

    WebSession(AppCore& core, WebSessionTimings timings);
    Page& page(const std::string& id);
    void forgetLater(const std::string& id);
    void forget(const std::string& id);

    void publish(std::string_view name, const nlohmann::json& data);
    nlohmann::json runningData();
    nlohmann::json featuredData();

    void updatePhase();
    void changePhase(ScenePhase phase);

    AppCore& core_;
    WebSessionTimings timings_;
    std::shared_ptr<ConectionForm> form_;
    std::map<std::string, std::unique_ptr<Page>> pages_;
    std::vector<std::function<void()>> unsubscribers_;
    // Counts grace periods, so a timer whose period was cut short does nothing.
    uint64_t graceGeneration_ = 0;
    bool graceRunning_ = false;
    bool runningPending_ = false;
    bool formPending_ = false;
    bool stopped_ = false;
};

}  // namespace ferrylink::app
