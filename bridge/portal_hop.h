#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "bridge/port_claim.h"
#include "bridge/server_link.h"
#include "foundation/byte_buffer.h"
#include "foundation/dispatch_queue.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"
#include "raknet/connection.h"
#include "raknet/listener.h"
#include "raknet/printer.h"
#include "raknet/server_info.h"

namespace ferrylink::bridge {

class PipedPlayer;
class TransferListener;

// What PortalHop::start achieved.
struct StartOutcome {
    // Where the bridge answers consoles; empty when it bound nothing.
    std::optional<foundation::SocketAddress> listening;
    // Why it bound nothing: one sentence for the user.
    std::string failure;
};

// The LAN side of one run of the bridge: a RakNet listener on the local port
// that lets consoles join far enough to receive a TransferPacket naming the
// real server (transferHost:transferPort), one PipedPlayer per client.
//
// Use:
//   auto hop = PortalHop::make("play.example.net", 19132, /*oneTransfer=*/true,
//                              [] { /* closed */ });
//   hop->setPrinter(consoleSink);                // optional, before start
//   hop->start(group, std::make_shared<raknet::ServerInfo>(...));
//   ...
//   if (hop->isRunning()) hop->stop();
//
// A run ends by stop(), or, with oneTransfer, 15 seconds after the first
// client left, or by itself when its socket closes; each way onCloseHandler
// runs once, on serverQueue. A run that bound no port ends inside start()
// and calls no handler. A closed server can't be started again: a new run is
// a new object.
//
// Ports: hostPort + 1 is tried when hostPort is taken by some other program,
// but not when another bridge holds it: two bridges never share a port.
//
// Threads: make() and start() run on the caller's thread, start() blocking
// during the bind. The transport's callbacks arrive on the event loop and are
// moved to serverQueue at once; serverQueue alone touches `players` and the
// PipedPlayers. stop() and isRunning() may be called from any thread.
class PortalHop : public ServerLink, public std::enable_shared_from_this<PortalHop> {
public:
    using StandardOutput = raknet::StandardOutputPrinter;

    static constexpr const char* serverQueueLabel = "org.norvane.portalhop.serial.queue";
    static constexpr const char* defaultHostIp = "0.0.0.0";
    static constexpr int defaultHostPort = 19132;
    // How long after a client has gone a oneTransfer server closes.
    static constexpr std::chrono::milliseconds oneTransferDelay{15000};
    // How long the compressed batches of the join are kept after the last
    // client has gone: consoles of one household tend to come one after
    // another, and the next is then served without compressing anything.
    static constexpr std::chrono::milliseconds batchCacheLinger{30000};

    // Builds the server, makes it the current one (through which every
    // session logs and takes its buffers) and loads the resource files.
    //   transferHost, transferPort: where clients are sent on to.
    //   oneTransfer: close 15 s after a client disconnects.
    //   onCloseHandler: called once the server has closed.
    //   hostPort, hostIp: the local endpoint; hostPort + 1 is tried when
    //     hostPort can't be bound.
    //   resolveIp: resolve transferHost to a numeric address at each
    //     hand-over; otherwise clients get the name as written.
    static std::shared_ptr<PortalHop> make(std::string transferHost, int transferPort, bool oneTransfer,
                                           std::function<void()> onCloseHandler, int hostPort = defaultHostPort,
                                           bool resolveIp = true, std::string hostIp = defaultHostIp);
    ~PortalHop() override;

    PortalHop(const PortalHop&) = delete;
    PortalHop& operator=(const PortalHop&) = delete;

    // Binds the listener with `info` as its advert and prints where it listens
    // and where it transfers to. Blocks its caller while the socket is bound.
    // When nothing could be bound the server is closed on return.
    StartOutcome start(std::shared_ptr<foundation::EventLoopGroup> group, std::shared_ptr<raknet::ServerInfo> info);
    // Returns at once; the close step runs on serverQueue: "Server shutdown!"
    // to every client, the listener closed, onCloseHandler called. Only while
    // running: a second stop, or a stop before start, is a fatal fault.
    void stop();
    bool isRunning() const { return !shutdown.load(); }
    // Why the run ended without being stopped: nothing bound, or the socket
    // closed. Empty while it runs and after a stop.
    std::optional<std::string> failure() const;

    // Where console lines go; a StandardOutput until replaced. Set it before start.
    void setPrinter(std::shared_ptr<raknet::Printer> printer);
    std::shared_ptr<raknet::Printer> printer() const;

    // The bound local address, once start() has bound a socket.
    std::optional<foundation::SocketAddress> localAddress() const;
    std::shared_ptr<raknet::Listener> listener() const;

    // ServerLink: the console and the bound channel's allocator.
    void print(std::string_view line) override;
    foundation::ByteBufferAllocator channelAllocator() override;

    const std::string hostIp;
    // Never changed, also not when the port above it is what got bound.
    const int hostPort;
    const std::string transferHost;
    const int transferPort;
    const bool resolveIp;
    const bool oneTransfer;
    const foundation::DispatchQueue serverQueue;

    // serverQueue only. Entries stay after the close step.
    std::unordered_map<foundation::SocketAddress, std::shared_ptr<PipedPlayer>> players;

private:
    // serverQueue only: counts the times the last client went, so that only
    // the latest linger lets go of the cached batches.
    uint64_t emptied_ = 0;

    friend class TransferListener;

    PortalHop(std::string transferHost, int transferPort, bool oneTransfer, std::function<void()> onCloseHandler,
              int hostPort, bool resolveIp, std::string hostIp);

    void loadResources();
    // The work of TransferListener's callbacks; serverQueue only.
    void receive(foundation::ByteBuffer payload, const foundation::SocketAddress& sender);
    void openConnection(const std::shared_ptr<raknet::Connection>& connection);
    void closeConnection(const foundation::SocketAddress& address, const std::string& reason);
    // The close step; serverQueue only.
    void closeAll();
    // Binds hostPort, or the port above when some other program holds it.
    std::optional<foundation::EventLoopFuture<void>> bindPort(const std::shared_ptr<raknet::Listener>& listener,
                                                              const std::shared_ptr<foundation::EventLoopGroup>& group,
                                                              const std::shared_ptr<raknet::ServerInfo>& info,
                                                              std::string& failure);
    // The socket closed without a stop: runs the close step. Any thread.
    void endByItself(std::string reason);

    std::shared_ptr<TransferListener> connectionListener_;
    std::function<void()> onCloseHandler_;
    std::atomic<bool> shutdown{false};
    // Set by the first stop() or endByItself(), whichever queues the close step.
    std::atomic<bool> closeAsked_{false};
    std::atomic<bool> endedByItself_{false};

    // The listener and the printer are read from every server's queue (a
    // session logs through the current server, which may be a newer one).
    mutable std::mutex mutex_;
    std::shared_ptr<raknet::Listener> listener_;
    std::shared_ptr<raknet::Printer> printer_ = std::make_shared<StandardOutput>();
    // Tells other bridges that the bound port is this one's; let go of once
    // the socket has closed.
    std::shared_ptr<PortClaim> claim_;
    std::optional<std::string> failure_;
};

}  // namespace ferrylink::bridge
