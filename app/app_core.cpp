#include "app/app_core.h"

#include "app/local_network_permission.h"
#include "app/main_thread.h"
#include "app/sqlite_database.h"
#include "foundation/fatal.h"

namespace ferrylink::app {

namespace {

constexpr const char* defaultFavouritePort = "19132";

std::string base64(std::string_view bytes) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t group = (static_cast<uint8_t>(bytes[i]) << 16) | (static_cast<uint8_t>(bytes[i + 1]) << 8) |
                         static_cast<uint8_t>(bytes[i + 2]);
        text += alphabet[(group >> 18) & 63];
        text += alphabet[(group >> 12) & 63];
        text += alphabet[(group >> 6) & 63];
        text += alphabet[group & 63];
    }
    if (size_t rest = bytes.size() - i; rest > 0) {
        uint32_t group = static_cast<uint8_t>(bytes[i]) << 16;
        if (rest == 2) {
            group |= static_cast<uint8_t>(bytes[i + 1]) << 8;
        }
        text += alphabet[(group >> 18) & 63];
        text += alphabet[(group >> 12) & 63];
        text += rest == 2 ? alphabet[(group >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

}  // namespace

std::string_view scenePhaseName(ScenePhase phase) {
    switch (phase) {
        case ScenePhase::background: return "background";
        case ScenePhase::inactive: return "inactive";
        case ScenePhase::active: return "active";
    }
    return "background";
}

AppCore::AppCore(AppConfig config, BridgeFactory bridgeFactory)
    : config_(std::move(config)),
      bridgeFactory_(std::move(bridgeFactory)),
      hooks_(std::make_shared<ScreenHooks>()) {
    // In the order the app object is built: the models, the store (opened
    // later, by launch), the partnered switch's setting.
    defaults_ = std::make_shared<UserDefaults>(dataFilePath(config_.dataDirectory));
    session_ = std::make_shared<BackendSession>(
        BackendEndpoint{config_.backendHost, config_.backendPort, config_.backendCaFile});
    runningServer_ = std::make_shared<RunningServerModel>();
    groupModel_ = std::make_shared<EventLoopGroupModel>();
    partnered_ = PartneredServers::make(session_);
    persistentStore_ = std::make_unique<PersistentStore>(dataFilePath(config_.dataDirectory));
    featuredModel_ = std::make_unique<FeaturedModel>(defaults_, partnered_);
    messages_ = Messages::make(session_);
    blacklist_ = BlacklistServers::make(session_);
    serverState_ = std::make_shared<Observable<std::string>>(kServerNotRunning);
}

AppCore::~AppCore() {
    // A run still up ends with the app, so that its consoles hear of it.
    if (const auto& server = runningServer_->server.getUnchecked(); server && server->isRunning()) {
        server->stop();
    }
}

void AppCore::checkDataFolder(const AppConfig& config) {
    std::filesystem::path file = dataFilePath(config.dataDirectory);
    if (file.empty()) {
        throw std::runtime_error("there is no data folder: give one with --data-dir, or set HOME");
    }
    try {
        SqliteDatabase database(file);
        database.execute("BEGIN IMMEDIATE; ROLLBACK");
    } catch (const StoreError& error) {
        throw std::runtime_error("the data folder " + file.parent_path().string() +
                                 " can't be written: " + error.localizedDescription());
    }
}

void AppCore::setScreenHooks(ScreenHooks hooks) { *hooks_ = std::move(hooks); }

void AppCore::launch() {
    assertMainThread();
    persistentStore_->viewContext();
}

Observable<std::vector<ServerRow>>& AppCore::favourites() { return persistentStore_->viewContext().servers; }

std::shared_ptr<ConectionForm> AppCore::makeConectionForm(std::shared_ptr<FormServerInfo> info) {
    assertMainThread();
    auto session = session_;
    auto defaults = defaults_;
    return ConectionForm::make(ConectionForm::Environment{
        .info = info ? std::move(info) : std::make_shared<FormServerInfo>(),
        .runningServer = runningServer_,
        .groupModel = groupModel_,
        .blacklist = blacklist_,
        .serverState = serverState_,
        .bridgeFactory = bridgeFactory_,
        .postLog = [session, defaults](const std::string& host,
                                       const std::string& port) { postLog(*session, *defaults, host, port); },
        .nameCheck = config_.nameCheck,
        .backendHost = config_.backendHost,
        .bridgeHost = config_.bridgeHost,
        .bridgePort = config_.bridgePort,
        .dismissKeyboard =
            [hooks = hooks_] {
                if (hooks->dismissKeyboard) {
                    hooks->dismissKeyboard();
                }
            },
        .console = config_.console,
    });
}

void AppCore::windowContentAppeared() {
    assertMainThread();
    if (!permissionNetwork_) {
        return;
    }
    permissionNetwork_ = false;
    // Made, asked and dropped at once: the sockets close right after they
    // were opened, which is all the attempt needs.
    auto service = config_.localNetworkAddresses
                       ? std::make_unique<LocalNetworkPermissionService>(*config_.localNetworkAddresses,
                                                                         LocalNetworkPermissionService::defaultPort)
                       : std::make_unique<LocalNetworkPermissionService>();
    service->requestPermission();
}

void AppCore::appViewAppeared() {
    assertMainThread();
    messages_->fetchMessages([this] { messageStep(); });
}

void AppCore::connectViewAppeared() {
    assertMainThread();
    countLaunchAndMaybeAskForReview();
    if (featuredModel_->featured.get()) {
        partnered_->fetchStatus();
    }
}

void AppCore::conectionFormAppeared() {
    assertMainThread();
    blacklist_->fetchBlacklist();
}

void AppCore::scenePhaseChanged(ScenePhase phase) {
    assertMainThread();
    if (phase == scenePhase_.get()) {
        return;
    }
    scenePhase_.set(phase);
    switch (phase) {
        case ScenePhase::background:
            persistentStore_->save();
            if (auto server = runningServer_->server.get()) {
                if (server->isRunning()) {
                    server->stop();
                }
                runningServer_->server.set(nullptr);
                // The bridge's own close step may run after this: stop only
                // queues it.
                groupModel_->resetGroup();
            }
            break;
        case ScenePhase::inactive:
            break;
        case ScenePhase::active:
            // No test for a running server: coming back from a sheet shuts
            // down the group a run is on, while the model keeps the server.
            groupModel_->resetGroup();
            partnered_->fetchStatus();
            break;
    }
}

void AppCore::countLaunchAndMaybeAskForReview() {
    assertMainThread();
    if (!defaults_->object(kReviewCounterKey)) {
        defaults_->setInteger(kReviewCounterKey, 1);
        return;
    }
    int64_t count = defaults_->integer(kReviewCounterKey);
    if (count != 10) {
        defaults_->setInteger(kReviewCounterKey, count + 1);
        return;
    }
    if (hooks_->requestReview) {
        hooks_->requestReview();
    }
    defaults_->setInteger(kReviewCounterKey, 1);
}

ServerRow AppCore::addToFavorites(const std::string& ip, const std::string& port) {
    assertMainThread();
    dismissKeyboard();
    auto& context = persistentStore_->viewContext();
    auto server = context.newServer();
    server->setIp(ip);
    server->setPort(port.empty() ? defaultFavouritePort : port);
    // Made in the context already; inserting again is harmless.
    context.insert(server);
    persistentStore_->save();
    return ServerRow{server->id(), server->ip(), server->port()};
}

bool AppCore::pickFavourite(uint64_t id, FormServerInfo& info) {
    assertMainThread();
    auto server = persistentStore_->viewContext().server(id);
    if (!server) {
        return false;
    }
    dismissKeyboard();
    if (!server->ip() || !server->port()) {
        foundation::fatalFault("a favourite without its ip or port");
    }
    info.ip.set(*server->ip());
    info.port.set(*server->port());
    scrollConnectViewTo(kConnectViewItemForm);
    return true;
}

bool AppCore::deleteFavourite(uint64_t id) {
    assertMainThread();
    auto& context = persistentStore_->viewContext();
    auto server = context.server(id);
    if (!server) {
        return false;
    }
    context.deleteObject(server);
    persistentStore_->save();
    return true;
}

void AppCore::pickPartnered(size_t index, FormServerInfo& info) {
    assertMainThread();
    const auto& servers = partnered_->servers.get();
    if (index >= servers.size()) {
        foundation::fatalFault("a partnered row past the end of the list");
    }
    info.ip.set(servers[index].ip);
    info.port.set(servers[index].port);
    scrollConnectViewTo(kConnectViewItemForm);
    // Here the keyboard goes last.
    dismissKeyboard();
}

void AppCore::toggleFeatured() { featuredModel_->toggle(); }

const Message& AppCore::importantMessage() {
    assertMainThread();
    const auto& list = messages_->messages.get();
    if (list.empty()) {
        foundation::fatalFault("the message alert has no message");
    }
    return list.front();
}

bool AppCore::dismissMessageForGood(const std::string& key) {
    assertMainThread();
    const auto& pending = pendingMessage_.get();
    if (!pending || pending->key != key) {
        return false;
    }
    defaults_->setBool(key, true);
    pendingMessage_.set(std::nullopt);
    return true;
}

std::string AppCore::messageKey(std::string_view text) { return base64(text); }

void AppCore::messageStep() {
    const auto& list = messages_->messages.get();
    if (list.empty()) {
        return;
    }
    // Only the first message is ever looked at; the key is made of its text,
    // so a reworded message counts as new.
    const Message& first = list.front();
    std::string key = messageKey(first.message);
    if (!defaults_->object(key)) {
        pendingMessage_.set(PendingMessage{first, key});
        messageAlert_.set(!messageAlert_.get());
    }
}

void AppCore::dismissKeyboard() {
    if (hooks_->dismissKeyboard) {
        hooks_->dismissKeyboard();
    }
}

void AppCore::scrollConnectViewTo(int item) {
    if (hooks_->scrollConnectViewTo) {
        hooks_->scrollConnectViewTo(item);
    }
}

}  // namespace ferrylink::app
