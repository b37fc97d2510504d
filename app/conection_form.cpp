#include "app/conection_form.h"

#include <netdb.h>
#include <sys/socket.h>

#include <charconv>
#include <vector>

#include "app/backend_client.h"
#include "app/main_thread.h"
#include "app/unicode_text.h"
#include "foundation/dispatch_queue.h"
#include "foundation/fatal.h"

namespace ferrylink::app {

namespace {

constexpr int64_t defaultPort = 19132;
constexpr size_t longestPort = 6;

void removeAll(std::string& text, std::string_view needle) {
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at)) {
        text.erase(at, needle.size());
    }
}

// Steps 1 to 5 of the button: the host as the bridge and the checks see it.
std::string cleanHost(const std::string& typed) {
    std::string host = typed;
    std::erase(host, ' ');
    host = lowercased(host);
    if (host.starts_with("http://")) {
        removeAll(host, "http://");
    }
    // Tested on what the step above left, so "http://https://x" loses both.
    if (host.starts_with("https://")) {
        removeAll(host, "https://");
    }
    // A port typed into the host field goes; it does not reach the port.
    size_t pieceStart = 0;
    while (pieceStart < host.size() && host[pieceStart] == ':') {
        ++pieceStart;
    }
    if (pieceStart < host.size()) {
        size_t pieceEnd = host.find(':', pieceStart);
        host = host.substr(pieceStart, pieceEnd == std::string::npos ? std::string::npos : pieceEnd - pieceStart);
    }
    return host;
}

std::string keepDigits(const std::string& typed) {
    std::string port;
    for (char c : typed) {
        if (c >= '0' && c <= '9') {
            port.push_back(c);
        }
    }
    return port;
}

std::optional<int64_t> decimalValue(const std::string& text) {
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

bool resolverNameCheck(const std::string& host, const std::string& port) {
    addrinfo* results = nullptr;
    int status = ::getaddrinfo(host.c_str(), port.c_str(), nullptr, &results);
    if (status != 0 || results == nullptr) {
        if (results != nullptr) {
            ::freeaddrinfo(results);
        }
        return false;
    }
    int family = results->ai_family;
    ::freeaddrinfo(results);
    return family == AF_INET || family == AF_INET6;
}

std::shared_ptr<ConectionForm> ConectionForm::make(Environment environment) {
    return std::shared_ptr<ConectionForm>(new ConectionForm(std::move(environment)));
}

ConectionForm::ConectionForm(Environment environment)
    : environment_(std::move(environment)), output_(std::make_shared<Output>(environment_.console)) {
    if (!environment_.nameCheck) {
        environment_.nameCheck = resolverNameCheck;
    }
}

void ConectionForm::runOrStop() {
    assertMainThread();
    std::string host = cleanHost(info().ip.get());
    std::string port = keepDigits(info().port.get());

    if (host.empty()) {
        emptyIpAlert.set(!emptyIpAlert.get());
        return;
    }
    // A port of six digits goes on: nothing checks it against 65535 here.
    if (port.size() > longestPort) {
        port.resize(longestPort);
    }
    if (host.find(kJavaNetworkFragment) != std::string::npos || environment_.blacklist->isBlacklisted(host)) {
        hypixelAlert.set(!hypixelAlert.get());
        return;
    }
    // The backend is no target; this ends without a word on purpose.
    if (!environment_.backendHost.empty() && host.find(environment_.backendHost) != std::string::npos) {
        return;
    }
    int64_t portNumber = port.empty() ? defaultPort : decimalValue(port).value_or(defaultPort);
    // Blocks the main queue for as long as the look-up takes.
    if (!environment_.nameCheck(host, std::to_string(portNumber))) {
        invalidIp.set(!invalidIp.get());
        return;
    }
    if (environment_.dismissKeyboard) {
        environment_.dismissKeyboard();
    }
    if (!environment_.runningServer->server.get()) {
        startServer(host, port, /*oneTransfer=*/false);
    } else {
        stop();
    }
}

void ConectionForm::startServer(const std::string& ip, const std::string& port, bool oneTransfer) {
    assertMainThread();
    int64_t transferPort = defaultPort;
    if (!port.empty()) {
        auto value = decimalValue(port);
        if (!value) {
            foundation::fatalFault("startServer: the port is not a number");
        }
        transferPort = *value;
    }

    if (!environment_.bridgeFactory) {
        foundation::fatalFault("this build has no bridge to run");
    }
    auto& model = environment_.runningServer->server;
    model.set(environment_.bridgeFactory(BridgeArguments{
        .transferHost = ip,
        .transferPort = transferPort,
        .oneTransfer = oneTransfer,
        .onCloseHandler = closeHandler(),
        .hostPort = environment_.bridgePort,
        .resolveIp = true,
        .hostIp = environment_.bridgeHost,
    }));
    auto runningServer = [&model] {
        const auto& server = model.get();
        if (!server) {
            foundation::fatalFault("startServer: the running server is gone");
        }
        return server;
    };

    runningServer()->setPrinter(output_);
    // The port as typed after cleaning: an empty field shows as "host:!".
    serverState().set(kServerRunningPrefix + ip + ":" + port + "!");
    if (environment_.postLog) {
        environment_.postLog(ip, port);
    }
    if (auto failure = runningServer()->start(environment_.groupModel->group.get(), ferrylinkAdvert())) {
        // The bridge has ended already and won't call its handler.
        model.set(nullptr);
        output_->consoleOutput.set({});
        serverState().set(kServerNotRunning);
        bindFailure.set(*failure);
        bindFailedAlert.set(!bindFailedAlert.get());
    }
}

void ConectionForm::stop() {
    auto& model = environment_.runningServer->server;
    if (const auto& server = model.get(); server->isRunning()) {
        server->stop();
    }
    model.set(nullptr);
    output_->consoleOutput.set({});
    // The status line stays until the bridge reports that it has closed.
}

void ConectionForm::serverClosed() { closeHandler()(); }

std::function<void()> ConectionForm::closeHandler() const {
    // Holds the models, not the form: a form may go (a screen closed) while
    // its run goes on, and the app must still learn that the run has ended.
    // Weak, so that a bridge left running at exit keeps nothing alive.
    return [runningServer = std::weak_ptr(environment_.runningServer),
            serverState = std::weak_ptr(environment_.serverState), output = std::weak_ptr(output_)] {
        foundation::DispatchQueue::main().async([runningServer, serverState, output] {
            if (auto model = runningServer.lock()) {
                model->server.set(nullptr);
            }
            if (auto console = output.lock()) {
                console->consoleOutput.set({});
            }
            if (auto line = serverState.lock()) {
                line->set(kServerNotRunning);
            }
        });
    };
}

}  // namespace ferrylink::app
