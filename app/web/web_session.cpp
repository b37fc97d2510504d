#include "app/web/web_session.h"

#include <algorithm>

#include "app/main_thread.h"
#include "app/web/web_events.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

using foundation::DispatchQueue;

std::optional<PageReport> pageReportNamed(std::string_view name) {
    if (name == "active") {
        return PageReport::active;
    }
    if (name == "inactive") {
        return PageReport::inactive;
    }
    if (name == "hidden") {
        return PageReport::hidden;
    }
    return std::nullopt;
}

bool isPageId(std::string_view text) {
    return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

AlertFlag* alertFlagNamed(ConectionForm& form, std::string_view name) {
    if (name == "emptyIpAlert") {
        return &form.emptyIpAlert;
    }
    if (name == "hypixelAlert") {
        return &form.hypixelAlert;
    }
    if (name == "invalidIp") {
        return &form.invalidIp;
    }
    return nullptr;
}

std::optional<ScenePhase> phaseOfPages(std::span<const PageVisibility> pages) {
    bool visible = false;
    for (const auto& page : pages) {
        if (!page.streamOpen || page.report == PageReport::hidden) {
            continue;
        }
        if (page.report == PageReport::active) {
            return ScenePhase::active;
        }
        visible = true;
    }
    return visible ? std::optional(ScenePhase::inactive) : std::nullopt;
}

struct WebSession::Page {
    std::shared_ptr<ConectionForm> form;
    std::optional<PageReport> report;
    std::vector<std::shared_ptr<EventStream>> streams;
    bool appeared = false;
    // Counts the page's forget timers, so that only the latest one counts.
    uint64_t forgetGeneration = 0;
    std::vector<std::function<void()>> unsubscribers;

    ~Page() {
        for (auto& unsubscribe : unsubscribers) {
            unsubscribe();
        }
    }
};

namespace {

// Subscribes `notify` to `field` and gives the call that ends it.
template <typename T>
std::function<void()> watch(Observable<T>& field, std::function<void()> notify) {
    auto subscription = field.subscribe([notify = std::move(notify)](const T&) { notify(); });
    return [&field, subscription] { field.unsubscribe(subscription); };
}

}  // namespace

std::shared_ptr<WebSession> WebSession::make(AppCore& core, WebSessionTimings timings) {
    return std::shared_ptr<WebSession>(new WebSession(core, timings));
}

WebSession::WebSession(AppCore& core, WebSessionTimings timings) : core_(core), timings_(timings) {}

WebSession::~WebSession() {
    // Streams are told to end, subscriptions dropped; both are safe from any
    // thread, and nothing here reads a model.
    for (auto& unsubscribe : unsubscribers_) {
        unsubscribe();
    }
    for (auto& [id, page] : pages_) {
        for (auto& stream : page->streams) {
            stream->close();
        }
    }
}

void WebSession::start() {
    assertMainThread();
    // Every write of a model becomes an event; the core writes on the main
    // queue, so the subscribers run here too.
    auto self = weak_from_this();
    unsubscribers_.push_back(watch(core_.scenePhase(), [self] {
        if (auto session = self.lock(); session && !session->stopped_) {
            session->publish("scene", sceneEventData(session->core_.scenePhase().get()));
        }
    }));
    // A start writes the server and then the status line, a stop the other
    // way round: one event per turn of the queue carries the pair as it ends.
    auto running = [self] {
        auto session = self.lock();
        if (!session || session->stopped_ || session->runningPending_) {
            return;
        }
        session->runningPending_ = true;
        DispatchQueue::main().async([self] {
            if (auto later = self.lock(); later && !later->stopped_) {
                later->runningPending_ = false;
                later->publish("running", later->runningData());
            }
        });
    };
    unsubscribers_.push_back(watch(core_.runningServer().server, running));
    unsubscribers_.push_back(watch(core_.serverState(), running));
    unsubscribers_.push_back(watch(core_.favourites(), [self] {
        if (auto session = self.lock(); session && !session->stopped_) {
            session->publish("favourites", favouritesEventData(session->core_.favourites().get()));
        }
    }));
    auto featured = [self] {
        if (auto session = self.lock(); session && !session->stopped_) {
            session->publish("featured", session->featuredData());
        }
    };
    unsubscribers_.push_back(watch(core_.featuredModel().featured, featured));
    unsubscribers_.push_back(watch(core_.partnered().servers, featured));
    unsubscribers_.push_back(watch(core_.pendingMessage(), [self] {
        if (auto session = self.lock(); session && !session->stopped_) {
            session->publish("message", messageEventData(session->core_.pendingMessage().get()));
        }
    }));
}

void WebSession::stop() {
    assertMainThread();
    stopped_ = true;
    for (auto& unsubscribe : unsubscribers_) {
        unsubscribe();
    }
    unsubscribers_.clear();
    for (auto& [id, page] : pages_) {
        for (auto& stream : page->streams) {
            stream->close();
        }
    }
    pages_.clear();
}

size_t WebSession::streamCount() const {
    size_t count = 0;
    for (const auto& [id, page] : pages_) {
        count += page->streams.size();
    }
    return count;
}

WebSession::Page& WebSession::page(const std::string& id) {
    if (auto found = pages_.find(id); found != pages_.end()) {
        return *found->second;
    }
    auto record = std::make_unique<Page>();
    record->form = core_.makeConectionForm();
    auto self = weak_from_this();
    auto flagChanged = [self, id] {
        if (auto session = self.lock(); session && !session->stopped_) {
            session->publishForm(id);
        }
    };
    record->unsubscribers.push_back(watch(record->form->emptyIpAlert, flagChanged));
    record->unsubscribers.push_back(watch(record->form->hypixelAlert, flagChanged));
    record->unsubscribers.push_back(watch(record->form->invalidIp, flagChanged));
    auto& page = *pages_.emplace(id, std::move(record)).first->second;
    // A record made by an action may never see a stream.
    forgetLater(id);
    return page;
}

void WebSession::forgetLater(const std::string& id) {
    auto& record = *pages_.at(id);
    uint64_t generation = ++record.forgetGeneration;
    DispatchQueue::main().asyncAfter(timings_.forgetPage, [self = weak_from_this(), id, generation] {
        auto session = self.lock();
        if (!session || session->stopped_) {
            return;
        }
        auto found = session->pages_.find(id);
        if (found != session->pages_.end() && found->second->forgetGeneration == generation &&
            found->second->streams.empty()) {
            session->forget(id);
        }
    });
}

void WebSession::forget(const std::string& id) { pages_.erase(id); }

void WebSession::publish(std::string_view name, const nlohmann::json& data) {
    std::string text = formatEvent(name, data);
    for (auto& [id, page] : pages_) {
        for (auto& stream : page->streams) {
            stream->push(text);
        }
    }
}

void WebSession::publishForm(const std::string& id) {
    auto found = pages_.find(id);
    if (found == pages_.end()) {
        return;
    }
    std::string text = formatEvent("form", formEventData(*found->second->form));
    for (auto& stream : found->second->streams) {
        stream->push(text);
    }
}

nlohmann::json WebSession::runningData() {
    return runningEventData(core_.runningServer().server.get(), core_.serverState().get());
}

nlohmann::json WebSession::featuredData() {
    return featuredEventData(core_.featuredModel().featured.get(), core_.partnered().servers.get());
}

void WebSession::openStream(const std::string& id, std::shared_ptr<EventStream> stream) {
    assertMainThread();
    if (stopped_) {
        stream->close();
        return;
    }
    auto& record = page(id);
    ++record.forgetGeneration;
    record.streams.push_back(stream);
    // The whole state, in the contract's order, before any change.
    stream->push(formatEvent("scene", sceneEventData(core_.scenePhase().get())));
    stream->push(formatEvent("running", runningData()));
    stream->push(formatEvent("form", formEventData(*record.form)));
    stream->push(formatEvent("favourites", favouritesEventData(core_.favourites().get())));
    stream->push(formatEvent("featured", featuredData()));
    stream->push(formatEvent("message", messageEventData(core_.pendingMessage().get())));

    // A stream that opens again after a drop is no new appearance.
    if (!record.appeared) {
        record.appeared = true;
        core_.windowContentAppeared();
        core_.appViewAppeared();
        core_.connectViewAppeared();
        core_.conectionFormAppeared();
    }
    updatePhase();
}

void WebSession::closeStream(const std::string& id, const std::shared_ptr<EventStream>& stream) {
    assertMainThread();
    auto found = pages_.find(id);
    if (stopped_ || found == pages_.end()) {
        return;
    }
    auto& streams = found->second->streams;
    streams.erase(std::remove(streams.begin(), streams.end(), stream), streams.end());
    if (streams.empty()) {
        forgetLater(id);
    }
    updatePhase();
}

void WebSession::runOrStop(const std::string& id, const std::string& ip, const std::string& port) {
    assertMainThread();
    // The form is held here: its run blocks the queue, but nothing should
    // outlive this call on a record that could be forgotten meanwhile.
    auto form = page(id).form;
    form->info().ip.set(ip);
    form->info().port.set(port);
    form->runOrStop();
}

bool WebSession::dismissAlert(const std::string& id, std::string_view alert) {
    assertMainThread();
    auto form = page(id).form;
    AlertFlag* flag = alertFlagNamed(*form, alert);
    if (flag == nullptr) {
        return false;
    }
    // The alert's presentation resets the flag, as a dismissed sheet would.
    if (flag->get()) {
        flag->set(false);
    }
    return true;
}

ServerRow WebSession::addToFavorites(const std::string& ip, const std::string& port) {
    assertMainThread();
    return core_.addToFavorites(ip, port);
}

bool WebSession::deleteFavourite(uint64_t id) {
    assertMainThread();
    return core_.deleteFavourite(id);
}

void WebSession::setFeatured(bool featured) {
    assertMainThread();
    // A second page may have flipped the switch already.
    if (core_.featuredModel().featured.get() != featured) {
        core_.toggleFeatured();
    }
}

bool WebSession::dismissMessageForGood(const std::string& key) {
    assertMainThread();
    return core_.dismissMessageForGood(key);
}

void WebSession::connectViewAppeared(const std::string& id) {
    assertMainThread();
    page(id);
    core_.connectViewAppeared();
    core_.conectionFormAppeared();
}

void WebSession::reportScene(const std::string& id, PageReport report) {
    assertMainThread();
    page(id).report = report;
    updatePhase();
}

void WebSession::updatePhase() {
    if (stopped_) {
        return;
    }
    std::vector<PageVisibility> visibility;
    bool someVisiblePageReported = false;
    for (const auto& [id, page] : pages_) {
        visibility.push_back(PageVisibility{!page->streams.empty(), page->report});
        if (!page->streams.empty() && page->report && page->report != PageReport::hidden) {
            someVisiblePageReported = true;
        }
    }
    ScenePhase current = core_.scenePhase().get();
    if (auto phase = phaseOfPages(visibility)) {
        if (graceRunning_) {
            graceRunning_ = false;
            ++graceGeneration_;
        }
        // A page that opened its stream but hasn't reported yet is most
        // likely the reload of one that just went: it keeps the app out of
        // the background, but the phase waits for its report. Passing
        // through inactive here would replace the event-loop group under a
        // running bridge at every reload.
        if (!someVisiblePageReported && current != ScenePhase::background) {
            return;
        }
        changePhase(*phase);
        return;
    }
    if (current == ScenePhase::background || graceRunning_) {
        return;
    }
    graceRunning_ = true;
    uint64_t generation = ++graceGeneration_;
    DispatchQueue::main().asyncAfter(timings_.backgroundGrace, [self = weak_from_this(), generation] {
        auto session = self.lock();
        if (!session || session->stopped_ || session->graceGeneration_ != generation) {
            return;
        }
        session->graceRunning_ = false;
        session->changePhase(ScenePhase::background);
    });
}

void WebSession::changePhase(ScenePhase phase) {
    // The core takes its steps only on a change and publishes the phase.
    core_.scenePhaseChanged(phase);
}

}  // namespace ferrylink::app
