#pragma once

#include <functional>
#include <memory>
#include <string>

#include "app/app_config.h"
#include "app/bridge_server.h"
#include "app/models.h"
#include "app/observable.h"
#include "app/output.h"

namespace ferrylink::app {

class BlacklistServers;

inline constexpr const char* kServerNotRunning = "Server is not running!";
inline constexpr const char* kServerRunningPrefix = "Server is running and will transfer to ";

// Alert titles of the form.
inline constexpr const char* kEmptyIpAlertTitle = "Server IP address cannot be empty.";
inline constexpr const char* kHypixelAlertTitle = "This is Java edition server! You cannot connect to it.";
inline constexpr const char* kInvalidIpAlertTitle = "Invalid IP address.";

// The name check of the form: the system's blocking resolver, asked with no
// hints. Passes when its first answer is an IPv4 or IPv6 address.
bool resolverNameCheck(const std::string& host, const std::string& port);

// The connection form's controller: the Run/Stop button, its checks and
// alerts, and the bridge's clean-up when it closes. Everything but
// serverClosed() runs on the main queue.
class ConectionForm : public std::enable_shared_from_this<ConectionForm> {
public:
    struct Environment {
        std::shared_ptr<FormServerInfo> info;
        std::shared_ptr<RunningServerModel> runningServer;
        std::shared_ptr<EventLoopGroupModel> groupModel;
        std::shared_ptr<BlacklistServers> blacklist;
        // The status line. The app keeps one, shared by all its forms.
        std::shared_ptr<Observable<std::string>> serverState;
        BridgeFactory bridgeFactory;
        // Reports a run (cleaned host, port text) without waiting.
        std::function<void(const std::string& host, const std::string& port)> postLog;
        // Empty: resolverNameCheck.
        NameCheck nameCheck;
        // Runs refuse hosts that contain the backend's own host name.
        std::string backendHost;
        std::string bridgeHost = "0.0.0.0";
        int bridgePort = 19132;
        // The screen's keyboard; may be empty.
        std::function<void()> dismissKeyboard;
        // Gets the bridge's console lines; may be empty.
        std::shared_ptr<raknet::Printer> console = nullptr;
    };

    static std::shared_ptr<ConectionForm> make(Environment environment);

    AlertFlag emptyIpAlert{false};
    AlertFlag hypixelAlert{false};
    AlertFlag invalidIp{false};
    // Run found no port to listen on; the alert's title is `bindFailure`.
    AlertFlag bindFailedAlert{false};
    Observable<std::string> bindFailure{std::string()};

    FormServerInfo& info() { return *environment_.info; }
    Observable<std::string>& serverState() { return *environment_.serverState; }
    Output& output() { return *output_; }

    // The button. Cleans the fields' text, checks it, and then starts a run,
    // or stops the one that is up. The checks come first in both cases, so a
    // field that fails them keeps Stop from stopping and shows its alert.
    void runOrStop();

    // Builds, advertises and starts one run with cleaned values. Called by
    // runOrStop only.
    void startServer(const std::string& ip, const std::string& port, bool oneTransfer);

    // The bridge's onCloseHandler: from any thread, hops to the main queue.
    // It drops whatever server the model holds by then, even one started
    // after this one.
    void serverClosed();

private:
    explicit ConectionForm(Environment environment);
    void stop();
    std::function<void()> closeHandler() const;

    Environment environment_;
    std::shared_ptr<Output> output_;
};

}  // namespace ferrylink::app
