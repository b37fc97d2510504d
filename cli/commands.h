#pragma once

#include <optional>
#include <string>

namespace ferrylink::cli {

struct RunOptions {
    std::string host;
    int port = 19132;
    bool oneTransfer = false;
    // Only start, stop, join, hand-over and error lines.
    bool quiet = false;
    std::string listenHost = "0.0.0.0";
    int listenPort = 19132;
};

struct PingOptions {
    std::string host;
    int port = 19132;
    // How long to wait for the advert, in milliseconds.
    int timeoutMs = 2000;
};

// What `ferrylink app` is started with. Options left empty keep the app's
// built-in values with their environment overrides.
struct AppOptions {
    // "HOST:PORT" of the page, checked by the app part.
    std::string listen = "127.0.0.1:8080";
    std::optional<std::string> backendHost;
    std::optional<int> backendPort;
    std::optional<std::string> backendCaFile;
    std::optional<std::string> dataDirectory;
    std::optional<std::string> bridgeHost;
    std::optional<int> bridgePort;
    // No time-stamped lines of runs, consoles and failures.
    bool quiet = false;
};

// Each returns the process's exit status.
int runBridge(const RunOptions& options);
int pingServer(const PingOptions& options);
// The program `ferrylink` carries no app, so that a headless bridge maps no
// HTTP, TLS, SQLite or curl library: there this starts the program that does
// (ferrylink-app) with the same `commandLine`, and returns only when that
// fails. In ferrylink-app it serves the app.
int runApp(const AppOptions& options, char** commandLine);

}  // namespace ferrylink::cli
