#pragma once

// Connections of our HTTP servers, with limits, so that idle or slow sockets
// can't starve the requests of others. httplib serves each connection on a
// thread of its pool for as long as it stays open; here instead:
//
// * a connection over the limit, in all or from one address, is closed at
//   once, on the thread that accepted it;
// * an accepted connection waits for its first byte in one poller thread,
//   holding no worker, and is closed when that byte takes too long;
// * a worker then reads the request against one deadline for all of it, so
//   a client that trickles its head or its body gets nowhere;
// * after the answer the connection is closed gently: what the client still
//   sends (the rest of a body refused early) is read and dropped for a
//   moment, so that the answer isn't lost to a reset.
//
// One request per connection.

#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <utility>

namespace ferrylink::http {

struct ConnectionLimits {
    // Requests served at once; an open event stream holds one.
    std::size_t workers = 16;
    // Connections open at once, waiting ones included.
    std::size_t maxConnections = 256;
    // Connections open at once from one address.
    std::size_t maxPerAddress = 32;
    // From the connection to its first byte.
    std::chrono::milliseconds idleTimeout{5000};
    // From the first byte to the last of the request, head and body.
    std::chrono::milliseconds requestTimeout{10000};
    // For each write of the answer.
    std::chrono::milliseconds writeTimeout{10000};
};

class ConnectionPool;

// An httplib server (plain or TLS) whose connections go through the pool.
// Set the limits before binding; stop() as usual.
template <typename Base>
class LimitedServer : public Base {
public:
    template <typename... Arguments>
    explicit LimitedServer(ConnectionLimits limits, Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...) {
        start(limits);
    }
    ~LimitedServer() override;

    // After a bind: lets the system queue as many connections as it will
    // before they are accepted (httplib asks for 5), so that a burst of them
    // doesn't make a client wait for its handshake to be retried.
    void widenBacklog();

private:
    void start(ConnectionLimits limits);
    // On the thread that accepted the socket: admits it to the pool, or
    // closes it at once.
    bool process_and_close_socket(socket_t sock) override;
    // Serves one connection whose first byte has come, on a worker.
    void serve(int fd);

    ConnectionLimits limits_;
    std::shared_ptr<ConnectionPool> pool_;
};

using LimitedHttpServer = LimitedServer<httplib::Server>;
#ifdef CPPHTTPLIB_OPENSSL_SUPPORT
using LimitedHttpsServer = LimitedServer<httplib::SSLServer>;
#endif

}  // namespace ferrylink::http
