#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "app/app_config.h"
#include "app/backend_client.h"
#include "app/bridge_server.h"
#include "app/conection_form.h"
#include "app/models.h"
#include "app/observable.h"
#include "app/persistent_store.h"
#include "app/user_defaults.h"

namespace ferrylink::app {

enum class ScenePhase { background, inactive, active };

std::string_view scenePhaseName(ScenePhase phase);

// What the screens do for the core: each may be left empty.
struct ScreenHooks {
    std::function<void()> dismissKeyboard;
    // Scrolls the connection screen to one of its three items (0 partnered
    // list, 1 favourites, 2 the form).
    std::function<void(int item)> scrollConnectViewTo;
    // Asks for a review prompt in the window that is in front, if any.
    // Empty: no prompt.
    std::function<void()> requestReview;
};

// The backend's message that waits for the user, with the key under which
// its dismissal is stored.
struct PendingMessage {
    Message message;
    std::string key;

    bool operator==(const PendingMessage&) const = default;
};

inline constexpr const char* kReviewCounterKey = "reviewCounter";
inline constexpr int kConnectViewItemForm = 2;
// The family name of the font all text of the app is drawn with.
inline constexpr const char* kFontFamily = "Minecraft";

// The app without its screens: every model they draw and every action their
// buttons take. One per process. Built on any thread; everything else, the
// destructor aside, runs on the main queue (foundation::DispatchQueue::main()).
class AppCore {
public:
    explicit AppCore(AppConfig config, BridgeFactory bridgeFactory = portalHopFactory());
    ~AppCore();
    AppCore(const AppCore&) = delete;
    AppCore& operator=(const AppCore&) = delete;

    // Whether the app can keep its settings and favourites in the data
    // folder of `config`: makes the folder and the file, and takes a write
    // lock. Throws std::runtime_error with the reason when it can't. Any
    // thread; for a host to call before it builds the core, whose store
    // failing later is fatal.
    static void checkDataFolder(const AppConfig& config);

    const AppConfig& config() const { return config_; }
    void setScreenHooks(ScreenHooks hooks);

    // Opens the favourites store, which a failure makes fatal. Call once the
    // main queue runs, before the screens appear.
    void launch();

    // The models.
    RunningServerModel& runningServer() { return *runningServer_; }
    EventLoopGroupModel& groupModel() { return *groupModel_; }
    PartneredServers& partnered() { return *partnered_; }
    FeaturedModel& featuredModel() { return *featuredModel_; }
    Messages& messages() { return *messages_; }
    BlacklistServers& blacklist() { return *blacklist_; }
    PersistentStore& persistentStore() { return *persistentStore_; }
    UserDefaults& defaults() { return *defaults_; }
    const BackendSession& backendSession() const { return *session_; }
    // The status line of the connection form, one for the app.
    Observable<std::string>& serverState() { return *serverState_; }
    Observable<ScenePhase>& scenePhase() { return scenePhase_; }
    // Toggled when a message waits; the alert's presentation resets it.
    AlertFlag& messageAlert() { return messageAlert_; }
    Observable<std::optional<PendingMessage>>& pendingMessage() { return pendingMessage_; }
    // The live list of favourites.
    Observable<std::vector<ServerRow>>& favourites();

    // A connection form of its own (alert flags, fields), over the app's
    // shared models. `info` empty: new fields.
    std::shared_ptr<ConectionForm> makeConectionForm(std::shared_ptr<FormServerInfo> info = nullptr);

    // First appearance of each screen.
    void windowContentAppeared();
    void appViewAppeared();
    void connectViewAppeared();
    void conectionFormAppeared();

    // The scene's phase as the screens see it. Steps run only on a change:
    // background saves the store and ends a run; active replaces the
    // event-loop group and refreshes the partnered list. The core starts in
    // background without taking its steps.
    void scenePhaseChanged(ScenePhase phase);

    // Counts appearances of the connection screen and asks for a review at
    // the 11th, then every 10th.
    void countLaunchAndMaybeAskForReview();

    // Favourites. Adding stores the fields as typed, "19132" for an empty
    // port, and saves.
    ServerRow addToFavorites(const std::string& ip, const std::string& port);
    // Copies a favourite into the fields; false for an unknown id.
    bool pickFavourite(uint64_t id, FormServerInfo& info);
    // Deletes and saves; false for an unknown id.
    bool deleteFavourite(uint64_t id);

    // Copies partnered row `index` into the fields; an index past the end is
    // a fatal fault.
    void pickPartnered(size_t index, FormServerInfo& info);
    // The partnered list's switch.
    void toggleFeatured();

    // The message alert's content: the first message. Fatal when none.
    const Message& importantMessage();
    // "Don't show this message again": stores true under the key. False,
    // storing nothing, when `key` is not the pending message's.
    bool dismissMessageForGood(const std::string& key);

    // The standard base64 of the text's UTF-8 bytes.
    static std::string messageKey(std::string_view text);

private:
    void messageStep();
    void dismissKeyboard();
    void scrollConnectViewTo(int item);

    AppConfig config_;
    BridgeFactory bridgeFactory_;
    std::shared_ptr<ScreenHooks> hooks_;

    std::shared_ptr<UserDefaults> defaults_;
    std::shared_ptr<const BackendSession> session_;
    std::shared_ptr<RunningServerModel> runningServer_;
    std::shared_ptr<EventLoopGroupModel> groupModel_;
    std::shared_ptr<PartneredServers> partnered_;
    std::unique_ptr<PersistentStore> persistentStore_;
    std::unique_ptr<FeaturedModel> featuredModel_;
    bool permissionNetwork_ = true;

    std::shared_ptr<Messages> messages_;
    std::shared_ptr<BlacklistServers> blacklist_;
    std::shared_ptr<Observable<std::string>> serverState_;
    Observable<ScenePhase> scenePhase_{ScenePhase::background};
    AlertFlag messageAlert_{false};
    Observable<std::optional<PendingMessage>> pendingMessage_;
};

}  // namespace ferrylink::app
