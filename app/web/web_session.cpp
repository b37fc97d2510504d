#include "app/web/web_session.h"

#include <algorithm>

#include "app/main_thread.h"
#include "app/web/web_events.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

using foundation::DispatchQueue;

std::optional<PageReport> pageReportNamed(std::string_view name) {
    if (name == "visible") {
        return PageReport::visible;
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
    if (name == "bindFailedAlert") {
        return &form.bindFailedAlert;
    }
    return nullptr;
}

bool somePageVisible(std::span<const PageVisibility> pages) {
    return std::any_of(pages.begin(), pages.end(), [](const PageVisibility& page) {
        return page.streamOpen && page.report != PageReport::hidden;
    });
}

struct WebSession::Page {
    std::optional<PageReport> report;
    std::vector<std::shared_ptr<EventStream>> streams;
    bool appeared = false;
    // Counts the page's forget timers, so that only the latest one counts.
    uint64_t forgetGeneration = 0;
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
    form_ = core_.makeConectionForm();
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
    // Typing writes both fields at once; one event per turn of the queue.
    auto form = [self] {
        auto session = self.lock();
        if (!session || session->stopped_ || session->formPending_) {
            return;
        }
        session->formPending_ = true;
        DispatchQueue::main().async([self] {
            if (auto later = self.lock(); later && !later->stopped_) {
                later->formPending_ = false;
                later->publish("form", formEventData(*later->form_));
            }
        });
    };
    for (auto* field : {&form_->info().ip, &form_->info().port}) {
        unsubscribers_.push_back(watch(*field, form));
    }
    for (auto* flag : {&form_->emptyIpAlert, &form_->hypixelAlert, &form_->invalidIp, &form_->bindFailedAlert}) {
        unsubscribers_.push_back(watch(*flag, form));
    }
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
    auto& page = *pages_.emplace(id, std::make_unique<Page>()).first->second;
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
    stream->push(formatEvent("form", formEventData(*form_)));
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

void WebSession::setFields(const std::string& ip, const std::string& port) {
    assertMainThread();
    if (form_->info().ip.get() != ip) {
        form_->info().ip.set(ip);
    }
    if (form_->info().port.get() != port) {
        form_->info().port.set(port);
    }
}

void WebSession::runOrStop(const std::string& ip, const std::string& port) {
    assertMainThread();
    setFields(ip, port);
    // Held here: the run blocks the queue, and the session may stop meanwhile.
    auto form = form_;
    form->runOrStop();
}

bool WebSession::dismissAlert(std::string_view alert) {
    assertMainThread();
    AlertFlag* flag = alertFlagNamed(*form_, alert);
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
    for (const auto& [id, page] : pages_) {
        visibility.push_back(PageVisibility{!page->streams.empty(), page->report});
    }
    if (somePageVisible(visibility)) {
        if (graceRunning_) {
            graceRunning_ = false;
            ++graceGeneration_;
        }
        changePhase(ScenePhase::active);
        return;
    }
    // A reload, or a quick switch of tabs, comes back within the grace.
    if (core_.scenePhase().get() == ScenePhase::background || graceRunning_) {
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
