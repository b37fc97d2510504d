#pragma once

#include <string>

namespace ferrylink::cli {

struct RunOptions {
    std::string host;
    int port = 19132;
    bool oneTransfer = false;
    std::string listenHost = "0.0.0.0";
    int listenPort = 19132;
};

struct PingOptions {
    std::string host;
    int port = 19132;
};

// Each returns the process's exit status.
int runBridge(const RunOptions& options);
int pingServer(const PingOptions& options);

}  // namespace ferrylink::cli
