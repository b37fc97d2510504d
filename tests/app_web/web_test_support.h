#pragma once

// An app core for the web layer's tests: a scratch data folder, a backend
// that refuses every connection on loopback, recording bridges and a name
// check that asks no resolver.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "app/app_core.h"
#include "app/app_test_support.h"
#include "app/fake_bridge.h"

namespace ferrylink::app::testing {

// A TCP port on loopback that nobody listens on, so every backend request
// fails at once with a refused connection (127.0.0.2 included).
inline int closedTcpPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    socklen_t length = sizeof(address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

inline bool numericOnlyNameCheck(const std::string& host, const std::string&) {
    in_addr v4{};
    return ::inet_pton(AF_INET, host.c_str(), &v4) == 1;
}

class WebTestApp {
public:
    WebTestApp() {
        AppConfig config;
        // Not the hosts the tests run to: Run refuses the backend's own host.
        config.backendHost = "127.0.0.2";
        config.backendPort = closedTcpPort();
        config.dataDirectory = scratch.path();
        config.bridgeHost = "127.0.0.1";
        config.bridgePort = 0;
        config.nameCheck = numericOnlyNameCheck;
        config.localNetworkAddresses = std::vector<std::string>{};
        core = std::make_unique<AppCore>(config, bridges.factory());
        onMain([&] { core->launch(); });
    }

    ScratchDirectory scratch;
    FakeBridgeFactory bridges;
    LogCollector log;  // the backend's refusals land here, not in the test's output
    std::unique_ptr<AppCore> core;
};

}  // namespace ferrylink::app::testing
