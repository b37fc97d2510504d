// `ferrylink app`: the app, served as a web page. The main queue runs on the
// main thread and owns the app's models; the page's requests reach it from
// the web server's threads.

#include <arpa/inet.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "app/app_core.h"
#include "app/web/access_token.h"
#include "app/web/listen_address.h"
#include "app/web/web_server.h"
#include "bridge/console_lines.h"
#include "cli/commands.h"
#include "cli/termination_signals.h"
#include "cli/world_data.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::cli {

using foundation::DispatchQueue;

namespace {

// How long Ctrl-C waits for a running bridge to say goodbye to its consoles.
constexpr std::chrono::milliseconds kBridgeCloseWait{5000};

// Seams for the browser tests, read from the environment only so that no
// user meets them on the command line:
//   FERRYLINK_TEST_TOKEN=<32 hex digits>  wants this token, loopback or not
//   FERRYLINK_TEST_NAME_CHECK=offline     checks hosts without a resolver
//   FERRYLINK_TEST_LOCAL_ADDRESSES=a,b    the start-up probe's addresses
//                                         (empty: none)
std::optional<std::string> testSeam(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

// The name check of the tests: numeric addresses and well-formed host names
// pass, "localhost" included; names under ".invalid" fail. It asks no
// resolver, so no test sends a query off the machine.
bool offlineNameCheck(const std::string& host, const std::string&) {
    in_addr v4{};
    in6_addr v6{};
    if (::inet_pton(AF_INET, host.c_str(), &v4) == 1 || ::inet_pton(AF_INET6, host.c_str(), &v6) == 1) {
        return true;
    }
    if (host.empty() || host.size() > 253 || host == "invalid" || host.ends_with(".invalid") ||
        host.ends_with(".invalid.")) {
        return false;
    }
    std::istringstream labels(host.back() == '.' ? host.substr(0, host.size() - 1) : host);
    for (std::string label; std::getline(labels, label, '.');) {
        bool wellFormed = !label.empty() && label.size() <= 63 && label.front() != '-' && label.back() != '-';
        for (char c : label) {
            wellFormed = wellFormed && (std::isalnum(static_cast<unsigned char>(c)) || c == '-');
        }
        if (!wellFormed) {
            return false;
        }
    }
    return host.front() != '.';
}

std::vector<std::string> splitList(const std::string& text) {
    std::vector<std::string> items;
    std::istringstream stream(text);
    for (std::string item; std::getline(stream, item, ',');) {
        if (!item.empty()) {
            items.push_back(item);
        }
    }
    return items;
}

app::AppConfig configFor(const AppOptions& options) {
    app::AppConfig config = app::AppConfig::fromEnvironment();
    if (options.backendHost) {
        config.backendHost = *options.backendHost;
    }
    if (options.backendPort) {
        config.backendPort = *options.backendPort;
    }
    if (options.backendCaFile) {
        config.backendCaFile = *options.backendCaFile;
    }
    if (options.dataDirectory) {
        config.dataDirectory = *options.dataDirectory;
    }
    if (options.bridgeHost) {
        config.bridgeHost = *options.bridgeHost;
    }
    if (options.bridgePort) {
        config.bridgePort = *options.bridgePort;
    }
    if (auto check = testSeam("FERRYLINK_TEST_NAME_CHECK")) {
        if (*check != "offline") {
            throw std::invalid_argument("FERRYLINK_TEST_NAME_CHECK knows only 'offline'");
        }
        config.nameCheck = offlineNameCheck;
    }
    if (auto addresses = testSeam("FERRYLINK_TEST_LOCAL_ADDRESSES")) {
        config.localNetworkAddresses = splitList(*addresses);
    }
    return config;
}

// "2026-05-01 12:00:00", local time.
std::string timeStamp() {
    std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

// What the user of `ferrylink app` reads on its terminal: one time-stamped
// line per run started or stopped, console joined, console handed over and
// failure. The runs come from the app's model, the rest from the bridge's
// console, whose lines the app hands over on the main queue, in order with
// the model's changes. Main queue only.
class RunLog : public raknet::Printer {
public:
    void watch(app::AppCore& core) {
        auto& model = core.runningServer().server;
        model.subscribe([this, &model](const std::shared_ptr<app::BridgeServer>& server) {
            if (!server) {
                if (std::exchange(running_, false)) {
                    line("Run stopped");
                }
                return;
            }
            // Told once the run is through its start: one that finds no port
            // is over within the same turn, and only its failure is told.
            DispatchQueue::main().async([this, &model, started = std::weak_ptr(server)] {
                auto current = started.lock();
                if (current && model.get() == current && !std::exchange(running_, true)) {
                    line("Run started: consoles are sent on to " + current->transferHost() + ":" +
                         std::to_string(current->transferPort()));
                }
            });
        });
    }

    void print(const std::string& text) override {
        switch (bridge::consoleLineKind(text)) {
            case bridge::ConsoleLineKind::join:
                if (text.starts_with(kJoined)) {
                    line("Console joined from " + text.substr(kJoined.size()));
                }
                break;
            case bridge::ConsoleLineKind::handOver:
                line("Console handed over to " + text.substr(kHandedOver.size()));
                break;
            case bridge::ConsoleLineKind::error:
                line("Failure: " + text);
                break;
            default:
                // Starts and stops are told from the model, the rest is chatter.
                break;
        }
    }

private:
    static constexpr std::string_view kJoined = "New connection: ";
    static constexpr std::string_view kHandedOver = "IP ";

    static void line(const std::string& text) { std::cout << timeStamp() << " " << text << std::endl; }

    bool running_ = false;
};

// Run refuses, without a word, any host that contains the backend's host
// text. With the built-in backend that costs nothing; a self-hosted one
// named by an address or a short name may swallow real targets.
void warnAboutBackendHost(const app::AppConfig& config) {
    if (config.backendHost.empty() || config.backendHost == app::builtInBackendHost()) {
        return;
    }
    std::cerr << "ferrylink: note: Run refuses, without a message, every server address that contains \""
              << config.backendHost << "\", the backend's host." << std::endl;
}

// The access token of a listener beyond loopback, kept in the data folder:
// the app a phone put on its home screen carries it, and must go on working
// after a restart. Made on first use, readable by the user only.
std::string keptAccessToken(const app::AppConfig& config) {
    std::filesystem::path file = app::dataFilePath(config.dataDirectory).parent_path() / "access-token";
    std::string token;
    if (std::ifstream in(file); in >> token && app::isAccessTokenText(token)) {
        return token;
    }
    token = app::makeAccessToken();
    std::ofstream out(file, std::ios::trunc);
    out << token << "\n";
    std::filesystem::permissions(file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::replace);
    if (!out) {
        throw std::runtime_error("cannot keep the access token in " + file.string());
    }
    return token;
}

// Ctrl-C in steps, on the main queue: a running bridge is stopped and given
// a moment to tell its consoles, then the page's streams end and the web
// server stops, and last the main queue.
class Shutdown : public std::enable_shared_from_this<Shutdown> {
public:
    Shutdown(app::AppCore& core, app::WebServer& web) : core_(core), web_(web) {}

    void begin() {
        if (begun_) {
            return;
        }
        begun_ = true;
        std::cout << "Stopping Ferrylink..." << std::endl;
        if (const auto& server = core_.runningServer().server.get(); server && server->isRunning()) {
            server->stop();
        }
        // The bridge's close handler sets the status line back; until then
        // its consoles are still being told that the server shuts down.
        if (core_.serverState().get() == app::kServerNotRunning) {
            finish();
            return;
        }
        auto self = shared_from_this();
        subscription_ = core_.serverState().subscribe([self](const std::string& state) {
            if (state == app::kServerNotRunning) {
                self->finish();
            }
        });
        DispatchQueue::main().asyncAfter(kBridgeCloseWait, [self] { self->finish(); });
    }

    // After the main queue has stopped.
    void join() {
        if (stopper_.joinable()) {
            stopper_.join();
        }
    }

private:
    void finish() {
        if (finished_) {
            return;
        }
        finished_ = true;
        if (subscription_) {
            core_.serverState().unsubscribe(*subscription_);
        }
        core_.persistentStore().save();
        // The web server's requests in flight may still wait for the main
        // queue, so it stops on a thread of its own while the queue runs.
        stopper_ = std::thread([&web = web_] {
            web.stop();
            DispatchQueue::main().async([] { DispatchQueue::main().stop(); });
        });
    }

    app::AppCore& core_;
    app::WebServer& web_;
    bool begun_ = false;
    bool finished_ = false;
    std::optional<app::Observable<std::string>::Subscription> subscription_;
    std::thread stopper_;
};

void printAddresses(const app::WebServer& web, bool loopback) {
    std::cout << "Ferrylink is ready. Open the app in a browser:" << std::endl;
    for (const auto& address : web.pageAddresses()) {
        std::cout << "Open " << address << std::endl;
    }
    if (!loopback) {
        std::cout << "Anyone on this network with an address above, token included, can use the app." << std::endl;
    }
    std::cout << "The bridge runs only while a page of the app is open and visible. Ctrl-C stops Ferrylink."
              << std::endl;
}

}  // namespace

int runApp(const AppOptions& options, char** /*commandLine*/) {
    // The browser may go away in the middle of a write.
    ::signal(SIGPIPE, SIG_IGN);
    DispatchQueue& mainQueue = DispatchQueue::main();

    // Before any thread starts, so that every thread leaves the signals to
    // the watcher. A second Ctrl-C ends the process at once.
    static std::atomic<int> signalsSeen{0};
    static std::atomic<Shutdown*> shutdownTarget{nullptr};
    watchTerminationSignals([](int) {
        if (signalsSeen.fetch_add(1) > 0) {
            static constexpr char message[] = "ferrylink: stopped at once\n";
            (void)::write(STDERR_FILENO, message, sizeof(message) - 1);
            std::_Exit(130);
        }
        DispatchQueue::main().async([] {
            if (auto* shutdown = shutdownTarget.load()) {
                shutdown->begin();
            } else {
                DispatchQueue::main().stop();
            }
        });
    });

    auto listen = app::parseListenAddress(options.listen);
    if (!listen) {
        std::cerr << "ferrylink: --listen: '" << options.listen << "' is not HOST:PORT (port 0-65535) (see ferrylink --help)"
                  << std::endl;
        return 2;
    }
    app::AppConfig config;
    app::WebServerOptions webOptions;
    try {
        config = configFor(options);
        webOptions.listen = *listen;
        webOptions.fixedToken = testSeam("FERRYLINK_TEST_TOKEN").value_or("");
    } catch (const std::exception& error) {
        std::cerr << "ferrylink: " << error.what() << std::endl;
        return 2;
    }
    try {
        app::AppCore::checkDataFolder(config);
        checkWorldData();
    } catch (const std::exception& error) {
        std::cerr << "ferrylink: " << error.what() << std::endl;
        return 1;
    }
    try {
        if (webOptions.fixedToken.empty() && !app::isLoopbackHost(listen->host)) {
            webOptions.fixedToken = keptAccessToken(config);
        }
    } catch (const std::exception& error) {
        std::cerr << "ferrylink: " << error.what() << std::endl;
        return 1;
    }
    warnAboutBackendHost(config);
    auto runLog = options.quiet ? nullptr : std::make_shared<RunLog>();
    config.console = runLog;

    auto core = std::make_unique<app::AppCore>(std::move(config));
    std::unique_ptr<app::WebServer> web;
    try {
        web = std::make_unique<app::WebServer>(*core, webOptions);
    } catch (const std::exception& error) {
        std::cerr << "ferrylink: " << error.what() << std::endl;
        return 2;
    }
    auto shutdown = std::make_shared<Shutdown>(*core, *web);

    int status = 0;
    mainQueue.async([&] {
        core->launch();
        try {
            web->start();
        } catch (const app::WebServerError& error) {
            std::cerr << "ferrylink: " << error.what() << std::endl;
            status = 1;
            mainQueue.stop();
            return;
        }
        shutdownTarget = shutdown.get();
        printAddresses(*web, app::isLoopbackHost(listen->host));
        if (runLog) {
            runLog->watch(*core);
        }
    });
    mainQueue.run();

    shutdownTarget = nullptr;
    shutdown->join();
    web.reset();
    core.reset();
    return status;
}

}  // namespace ferrylink::cli
