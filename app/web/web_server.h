#pragma once

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/app_core.h"
#include "app/web/listen_address.h"
#include "app/web/web_session.h"

namespace ferrylink::app {

struct WebServerOptions {
    ListenAddress listen{"127.0.0.1", 8080};
    // The token to ask for, on any address (a kept one, or a test's); empty:
    // a new token when the address is not loopback, none when it is.
    std::string fixedToken = {};
    WebSessionTimings timings = {};
    std::chrono::milliseconds keepalive{15000};
};

// The address could not be served: taken, not this machine's, or not a host.
class WebServerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The app's window as a web page: serves the page compiled into the
// program, its event stream and its actions over HTTP, on threads of its
// own. Every request that reads or changes a model crosses to the main
// queue and waits for its block there, so the main queue must run while the
// server does.
class WebServer {
public:
    // Checks the options; binds nothing yet. Throws std::invalid_argument
    // for a fixed token that is not 32 lower-case hex digits.
    WebServer(AppCore& core, WebServerOptions options);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // Main queue: subscribes to the models, binds the address and starts
    // serving. Throws WebServerError when the address can't be bound.
    void start();

    // The bound port (the system's choice for port 0), once started.
    int port() const;
    // The access token, empty when none is needed.
    const std::string& token() const;
    // The addresses to open the page at, each with the token: one per local
    // IPv4 address for a listener on all of them.
    std::vector<std::string> pageAddresses() const;

    // Ends every stream, refuses new requests and waits for those in flight.
    // Not on the main queue, which must go on running until this returns:
    // requests in flight may be waiting for it.
    void stop();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace ferrylink::app
