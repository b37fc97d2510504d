#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "foundation/channel.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"
#include "raknet/connection_listener.h"
#include "raknet/printer.h"
#include "raknet/server_info.h"

namespace ferrylink::raknet {

// The error of a ping that got no answer in time; what() is `message`.
class TimeoutError : public std::runtime_error {
public:
    explicit TimeoutError(std::string message) : std::runtime_error(message), message(std::move(message)) {}
    std::string message;
};

// The outward endpoint: asks remote servers for their advert with unconnected
// pings. It has no connections. Made with std::make_shared.
//
// A ping is sent once a second until the pong comes or 7000 ms have passed
// (measured on foundation::Clock); a second ping() of the same address while
// one is under way shares its future.
class Client : public std::enable_shared_from_this<Client> {
public:
    using StandardOutput = StandardOutputPrinter;

    static constexpr int64_t PING_TIMEOUT = 7000;
    static constexpr int64_t PING_RESEND_INTERVAL = 1000;

    Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Binds the local endpoint and starts the tick; blocks until the socket
    // stands. Gives the channel's close future, or nothing (after one line on
    // `printer`) when binding failed. Not on the loop's thread.
    std::optional<foundation::EventLoopFuture<void>> bind(const std::string& host, int port,
                                                          std::shared_ptr<foundation::EventLoopGroup> group);
    // Stops the tick and closes the channel; pings under way are left unanswered.
    void close();
    void send(foundation::ByteBuffer buffer, const foundation::SocketAddress& address);
    // From any thread, after a successful bind (without a channel it is a fatal
    // fault). Fails with TimeoutError "Ping timeout" when no pong came in time.
    foundation::EventLoopFuture<std::shared_ptr<ServerInfo>> ping(const foundation::SocketAddress& address);
    // Starts the repeated tick on the channel's loop, unless it runs; it
    // stops by itself once no ping is under way. Loop thread.
    void update();
    void sendPing(const foundation::SocketAddress& address, int64_t time);

    struct PingEntry {
        foundation::EventLoopPromise<std::shared_ptr<ServerInfo>> promise;
        // The moment of giving up, ms since 1970.
        int64_t timeout;
        // The last send, ms since 1970.
        int64_t sendTime;
    };

    // The clientId of every ping; random per Client.
    const int64_t id;
    // Set on the loop as the socket is made; fixed from then on.
    std::shared_ptr<foundation::Channel> channel;
    // Loop thread only: ping() does its table work there.
    std::unordered_map<foundation::SocketAddress, PingEntry> pings;
    std::atomic<bool> shutdown{false};
    // Kept for symmetry with the Listener; never called.
    std::shared_ptr<ConnectionListener> connectionListener;
    // The owner may replace it before bind().
    std::shared_ptr<Printer> printer = std::make_shared<StandardOutput>();
    std::shared_ptr<foundation::RepeatedTask> updateTask;

private:
    class ClientDatagramHandler;

    void channelRead(foundation::AddressedEnvelope envelope);
    foundation::EventLoopFuture<std::shared_ptr<ServerInfo>> startPing(const foundation::SocketAddress& address);
};

}  // namespace ferrylink::raknet
