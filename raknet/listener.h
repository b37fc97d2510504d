#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/channel.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"
#include "raknet/connection_listener.h"
#include "raknet/printer.h"
#include "raknet/request_budget.h"
#include "raknet/server_info.h"
#include "raknet/split_assembler.h"

namespace ferrylink::raknet {

class Connection;

// Period of the tick of Listener and Client, in seconds; 10 ms.
inline constexpr double RAKNET_TICK_LENGTH = 0.01;
// RakNet protocol versions accepted; any other is told INCOMPATIBLE_REPLY_VERSION.
inline constexpr std::array<int32_t, 2> RAKNET_PROTOCOL_VERSIONS{10, 11};
inline constexpr int32_t INCOMPATIBLE_REPLY_VERSION = 11;

// The server end of the transport: one bound UDP channel, a table of
// connections by peer address, and the offline half of the protocol (pings,
// MTU negotiation). Made with std::make_shared.
//
// The tick runs only while the table holds a connection; with none, the
// Listener wakes for datagrams alone.
//
// A flood of forged requests costs little work each. Each source address has
// a budget of the requests that open a connection (RequestBudget): what
// passes it is answered in full, what doesn't is counted in one line a
// second. A request 1 is only answered and remembered in that budget's
// table; the connection comes with the request 2 of the same address. Limits
// on the table: MAX_CONNECTIONS in all, and of them at most MAX_HALF_OPEN
// that have sent nothing but offline requests. When a new peer would pass
// the second, the oldest half-open one is dropped; a console needs only a
// round trip to get past that state, far less than the time a flood takes to
// push it out.
//
// Threads: the constructor, bind() and close() run on the owner's thread;
// everything else runs on the event loop's one thread.
//
// Ownership: each Connection holds its Listener while it is in the table. A
// removed connection lets go of it, and close() empties the table and lets
// every connection go of it, so that no cycle outlives the channel.
class Listener : public std::enable_shared_from_this<Listener> {
public:
    using StandardOutput = StandardOutputPrinter;

    // Enough for a thousand consoles joining at once with room to spare;
    // every connection costs a visit of the tick each 10 ms.
    static constexpr size_t MAX_CONNECTIONS = 4096;
    static constexpr size_t MAX_HALF_OPEN = 2048;

    Listener();
    ~Listener();

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Binds host:port on `group`; blocks until the socket stands. Gives the
    // channel's close future, or nothing (after one line on `printer`) when
    // binding failed. Not on the loop's thread.
    std::optional<foundation::EventLoopFuture<void>> bind(std::shared_ptr<ConnectionListener> connectionListener,
                                                          std::shared_ptr<ServerInfo> info, const std::string& host,
                                                          int port,
                                                          std::shared_ptr<foundation::EventLoopGroup> group);
    // Stops the tick at its next run and closes the channel. Any thread.
    void close();
    // Starts the repeated tick on the channel's loop, unless it runs. Loop thread.
    void update();
    void send(foundation::ByteBuffer buffer, const foundation::SocketAddress& address);
    // Reasons in use: "timeout", "client disconnect", "shutdown". The listener
    // hears of it at once, each time; the entry leaves the table on the loop.
    void removeConnection(const std::shared_ptr<Connection>& connection, const std::string& reason);
    // Takes a peer out of the table at once and tells the listener of
    // connections, for a connection that has said its goodbye and won't send
    // again: one that dropped its peer or was told to disconnect. Loop thread.
    void dropConnection(const std::shared_ptr<Connection>& connection, const std::string& reason);

    // The payload size a peer's MTU value allows: clamped to 576...1400, less
    // 40 (IPv6) or 20 (IPv4) for the IP header and 8 for UDP.
    static int32_t connectionMtu(int32_t requested, const foundation::SocketAddress& peer);

    // What the fragments of all connections hold together. Loop thread.
    const std::shared_ptr<FragmentMemory>& fragmentMemory() const { return fragmentMemory_; }

    // The table, read from the loop's thread only.
    const std::unordered_map<foundation::SocketAddress, std::shared_ptr<Connection>>& connections() const {
        return connections_;
    }
    size_t halfOpenCount() const { return halfOpen_; }

    // The serverId of every reply and of the advert; random per Listener.
    const int64_t id;
    std::shared_ptr<ServerInfo> info;
    // Set on the loop as the socket is made, before any datagram can arrive;
    // fixed from then on.
    std::shared_ptr<foundation::Channel> channel;
    std::atomic<bool> shutdown{false};
    std::shared_ptr<ConnectionListener> connectionListener;
    // The owner may replace it before bind().
    std::shared_ptr<Printer> printer = std::make_shared<StandardOutput>();
    std::shared_ptr<foundation::EventLoopGroup> group;

private:
    class ServerDatagramHandler;
    using Table = std::unordered_map<foundation::SocketAddress, std::shared_ptr<Connection>>;

    void channelRead(foundation::ChannelHandlerContext& context, foundation::AddressedEnvelope envelope);
    void handleUnconnectedPing(foundation::ChannelHandlerContext& context, foundation::AddressedEnvelope& envelope);
    void handleOpenConnectionRequest1(foundation::ChannelHandlerContext& context,
                                      foundation::AddressedEnvelope& envelope,
                                      const std::shared_ptr<Connection>& connection);
    void handleOpenConnectionRequest2(foundation::ChannelHandlerContext& context,
                                      foundation::AddressedEnvelope& envelope,
                                      const std::shared_ptr<Connection>& connection);
    // Whether there is room for one more peer, dropping the oldest half-open
    // one if need be.
    bool makeRoom();
    void table(const std::shared_ptr<Connection>& connection);
    // Every way out of the table passes here.
    void forget(Table::iterator entry);
    void releaseConnections();
    // Counts a request over its source's budget; the count is printed a
    // second after the first one, in one line for them all.
    void refuse();
    // The pong for the advert as it stands now, with clientTime 0: made
    // again only when the advert changed.
    const foundation::ByteBuffer& pongTemplate();

    Table connections_;
    size_t halfOpen_ = 0;
    // Half-open connections in the order they came; entries that have left
    // that state, or the table, are skipped when met.
    std::deque<std::weak_ptr<Connection>> halfOpenOrder_;
    std::shared_ptr<foundation::RepeatedTask> updateTask_;
    std::shared_ptr<FragmentMemory> fragmentMemory_ = std::make_shared<FragmentMemory>();
    RequestBudget requestBudget_;
    bool excessReportDue_ = false;
    std::optional<ServerInfo> pongAdvert_;
    foundation::ByteBuffer pongTemplate_;
};

}  // namespace ferrylink::raknet
