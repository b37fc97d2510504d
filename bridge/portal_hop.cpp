#include "bridge/portal_hop.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "bridge/packets/deflate_cache.h"
#include "bridge/packets/disconnect_packet.h"
#include "bridge/piped_player.h"
#include "bridge/resource_bundle.h"
#include "bridge/transfer_listener.h"
#include "bridge/world_resources.h"
#include "foundation/fatal.h"
#include "foundation/printable_text.h"

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::fatalFault;
using foundation::SocketAddress;

namespace {

// The whole file, or the reason it couldn't be read.
std::optional<ByteBuffer> readWholeFile(const std::filesystem::path& path, std::string& failure) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        failure = "The file \"" + path.filename().string() + "\" couldn't be opened: " + std::strerror(errno);
        return std::nullopt;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) {
        failure = "The file \"" + path.filename().string() + "\" couldn't be read: " + std::strerror(errno);
        return std::nullopt;
    }
    return ByteBuffer(bytes);
}

// How long a run waits for an earlier run of this process to let go of its
// port: that run's close step and its socket's close are queued work.
constexpr std::chrono::milliseconds kEarlierRunPatience{2000};

// Passes every line on, and keeps the last one printed on the thread that
// binds: a failed bind tells its reason there, in the listener's words.
class BindReasonRecorder : public raknet::Printer {
public:
    explicit BindReasonRecorder(std::shared_ptr<raknet::Printer> next)
        : next_(std::move(next)), binder_(std::this_thread::get_id()) {}

    void print(const std::string& text) override {
        if (std::this_thread::get_id() == binder_) {
            lastReason_ = text;
        }
        next_->print(text);
    }

    // On the binding thread only.
    const std::string& lastReason() const { return lastReason_; }

private:
    std::shared_ptr<raknet::Printer> next_;
    const std::thread::id binder_;
    std::string lastReason_;
};

// "0.0.0.0:19132", "[::]:19132".
std::string hostAndPort(const SocketAddress& address) {
    std::string host = address.ipAddress().value_or("?");
    if (host.find(':') != std::string::npos) {
        host = "[" + host + "]";
    }
    return host + ":" + std::to_string(address.port().value_or(0));
}

}  // namespace

PortalHop::PortalHop(std::string transferHost, int transferPort, bool oneTransfer,
                     std::function<void()> onCloseHandler, int hostPort, bool resolveIp, std::string hostIp)
    : hostIp(std::move(hostIp)),
      hostPort(hostPort),
      transferHost(std::move(transferHost)),
      transferPort(transferPort),
      resolveIp(resolveIp),
      oneTransfer(oneTransfer),
      serverQueue(serverQueueLabel),
      onCloseHandler_(std::move(onCloseHandler)) {}

PortalHop::~PortalHop() = default;

std::shared_ptr<PortalHop> PortalHop::make(std::string transferHost, int transferPort, bool oneTransfer,
                                           std::function<void()> onCloseHandler, int hostPort, bool resolveIp,
                                           std::string hostIp) {
    std::shared_ptr<PortalHop> server(new PortalHop(std::move(transferHost), transferPort, oneTransfer,
                                                    std::move(onCloseHandler), hostPort, resolveIp, std::move(hostIp)));
    server->connectionListener_ = std::make_shared<TransferListener>(server);
    ServerLink::install(server);
    server->loadResources();
    return server;
}

void PortalHop::loadResources() {
    const ResourceBundle& bundle = ResourceBundle::main();
    for (auto resource :
         {WorldResource::biomeDefinitions, WorldResource::entityIdentifiers, WorldResource::requiredBlockStates}) {
        auto path = bundle.pathForResource(resourceName(resource), "nbt");
        if (!path) {
            fatalFault("missing resource " + std::string(resourceName(resource)) + ".nbt in " + bundle.folder().string());
        }
        std::string failure;
        auto bytes = readWholeFile(*path, failure);
        if (!bytes) {
            // What was loaded so far stays; a client that needs a missing
            // table ends the process when its packet is encoded.
            print(failure);
            return;
        }
        WorldResources::set(resource, std::move(bytes));
    }
}

void PortalHop::setPrinter(std::shared_ptr<raknet::Printer> printer) {
    std::lock_guard lock(mutex_);
    printer_ = std::move(printer);
}

std::shared_ptr<raknet::Printer> PortalHop::printer() const {
    std::lock_guard lock(mutex_);
    return printer_;
}

std::shared_ptr<raknet::Listener> PortalHop::listener() const {
    std::lock_guard lock(mutex_);
    return listener_;
}

std::optional<SocketAddress> PortalHop::localAddress() const {
    auto current = listener();
    if (!current || !current->channel) {
        return std::nullopt;
    }
    return current->channel->localAddress();
}

void PortalHop::print(std::string_view line) { printer()->print(std::string(line)); }

foundation::ByteBufferAllocator PortalHop::channelAllocator() {
    auto current = listener();
    if (!current || !current->channel) {
        fatalFault();
    }
    return current->channel->allocator();
}

StartOutcome PortalHop::start(std::shared_ptr<foundation::EventLoopGroup> group,
                              std::shared_ptr<raknet::ServerInfo> info) {
    auto made = std::make_shared<raknet::Listener>();
    made->printer = printer();
    {
        std::lock_guard lock(mutex_);
        listener_ = made;
    }
    std::string failure;
    auto closeFuture = bindPort(made, group, info, failure);
    // The same two lines whichever port was bound, or none; the line after
    // them says where the bridge really listens.
    print("Server running and listening on " + hostIp + ":" + std::to_string(hostPort));
    print("Server will transfer to " + transferHost + ":" + std::to_string(transferPort));
    auto bound = localAddress();
    if (!closeFuture || !bound) {
        // Nothing to close and nobody to tell: the run ends here, and lets
        // go of the transport's listener as a close step would, which holds
        // this server.
        shutdown = true;
        closeAsked_ = true;
        connectionListener_.reset();
        std::lock_guard lock(mutex_);
        listener_.reset();
        failure_ = failure;
        return StartOutcome{std::nullopt, failure};
    }
    std::string line = "Listening on UDP " + hostAndPort(*bound);
    if (bound->port() != hostPort && hostPort != 0) {
        line += " (port " + std::to_string(hostPort) + " is taken)";
    }
    print(line);
    {
        auto claim = PortClaim::take(*bound->port());
        std::lock_guard lock(mutex_);
        claim_ = claim ? std::make_shared<PortClaim>(std::move(*claim)) : nullptr;
    }

    foundation::DispatchQueue::global().async([closeFuture, self = shared_from_this()] {
        std::string reason = "The bridge's socket closed.";
        try {
            closeFuture->wait();
        } catch (...) {
            std::string text = foundation::errorDescription(std::current_exception());
            foundation::DispatchQueue::main().async([self, text] { self->print(text); });
            reason = "The bridge's socket failed: " + text;
        }
        // A stop closes the socket too; only a close nobody asked for ends
        // the run from here.
        self->endByItself(reason);
    });
    return StartOutcome{bound, ""};
}

std::optional<foundation::EventLoopFuture<void>> PortalHop::bindPort(
    const std::shared_ptr<raknet::Listener>& listener, const std::shared_ptr<foundation::EventLoopGroup>& group,
    const std::shared_ptr<raknet::ServerInfo>& info, std::string& failure) {
    auto recorder = std::make_shared<BindReasonRecorder>(listener->printer);
    listener->printer = recorder;
    auto closeFuture = listener->bind(connectionListener_, info, hostIp, hostPort, group);
    if (closeFuture) {
        return closeFuture;
    }
    if (hostPort == 0) {
        failure = "Could not listen on UDP " + hostIp + ": " + recorder->lastReason();
        return std::nullopt;
    }
    auto holder = PortClaim::holderOf(hostPort);
    if (holder == PortClaim::Holder::thisProcess && PortClaim::waitUntilReleased(hostPort, kEarlierRunPatience)) {
        // An earlier run of this process was still closing its socket.
        closeFuture = listener->bind(connectionListener_, info, hostIp, hostPort, group);
        holder = closeFuture ? PortClaim::Holder::none : PortClaim::holderOf(hostPort);
    }
    if (closeFuture) {
        return closeFuture;
    }
    if (holder != PortClaim::Holder::none) {
        failure = "Another Ferrylink is already listening on UDP port " + std::to_string(hostPort) + ".";
        return std::nullopt;
    }
    closeFuture = listener->bind(connectionListener_, info, hostIp, hostPort + 1, group);
    if (!closeFuture) {
        failure = "Could not listen on UDP port " + std::to_string(hostPort) + " or " + std::to_string(hostPort + 1) +
                  ": " + recorder->lastReason();
    }
    return closeFuture;
}

std::optional<std::string> PortalHop::failure() const {
    std::lock_guard lock(mutex_);
    return failure_;
}

void PortalHop::endByItself(std::string reason) {
    if (closeAsked_.exchange(true)) {
        return;
    }
    print(reason);
    {
        std::lock_guard lock(mutex_);
        failure_ = std::move(reason);
    }
    endedByItself_ = true;
    shutdown = true;
    serverQueue.async([self = shared_from_this()] { self->closeAll(); });
}

void PortalHop::stop() {
    closeAsked_ = true;
    serverQueue.async([self = shared_from_this()] { self->closeAll(); });
}

void PortalHop::receive(ByteBuffer payload, const SocketAddress& sender) {
    auto found = players.find(sender);
    if (found == players.end()) {
        fatalFault();
    }
    found->second->receiveBatch(std::move(payload));
}

void PortalHop::openConnection(const std::shared_ptr<raknet::Connection>& connection) {
    const SocketAddress& address = connection->address;
    auto host = address.ipAddress();
    auto port = address.port();
    if (!host || !port) {
        fatalFault();
    }
    ServerLink::current()->print("New connection: " + *host + ":" + std::to_string(*port));
    players[address] = std::make_shared<PipedPlayer>(shared_from_this(), address, connection, connection->protocolVersion);
}

void PortalHop::closeConnection(const SocketAddress& address, const std::string& reason) {
    auto found = players.find(address);
    if (found != players.end()) {
        std::string name = foundation::printable(found->second->displayName.value_or("Player"));
        ServerLink::current()->print(name + " disconnected due to \"" + reason + "\"!");
        players.erase(found);
        // Sends run on this queue, so its thread's cache is the one that
        // holds their batches; nobody coming within the linger, it holds them
        // for no one.
        if (players.empty()) {
            serverQueue.asyncAfter(batchCacheLinger, [weak = weak_from_this(), emptied = ++emptied_] {
                auto self = weak.lock();
                if (self && self->players.empty() && self->emptied_ == emptied) {
                    DeflateCache::forThisThread().clear();
                }
            });
        }
    } else {
        ServerLink::current()->print("Connection closed " + address.description() + " due to " + reason + "!");
    }
    // Every ended connection arms a timer of its own; the first to fire on a
    // oneTransfer server closes it, even if other clients came since.
    serverQueue.asyncAfter(oneTransferDelay, [self = shared_from_this()] {
        if (!self->shutdown.load() && self->oneTransfer) {
            self->stop();
            self->shutdown = true;
        }
    });
}

void PortalHop::closeAll() {
    shutdown = true;
    for (auto& [address, player] : players) {
        DisconnectPacket disconnect(player->layoutProtocol(), "Server shutdown!", false);
        player->sendPacket(disconnect);
    }
    std::shared_ptr<raknet::Listener> closing;
    std::shared_ptr<PortClaim> claim;
    {
        std::lock_guard lock(mutex_);
        closing = std::move(listener_);
        claim = std::move(claim_);
    }
    if (!closing) {
        // A stop that raced the socket's own end finds the work done.
        if (endedByItself_) {
            return;
        }
        fatalFault();
    }
    closing->close();
    if (claim && closing->channel) {
        // The claim outlives the socket, so that a bridge that finds the
        // port taken knows whose it is until it is free.
        closing->channel->closeFuture().whenComplete([claim](const auto&) {});
    }
    claim.reset();
    print("Server shutting down!");
    if (!onCloseHandler_) {
        fatalFault();
    }
    // The players and the transport's listener hold this server; nothing can
    // reach them any more, so let go of them here.
    for (auto& [address, player] : players) {
        player->server.reset();
    }
    connectionListener_.reset();
    onCloseHandler_();
}

}  // namespace ferrylink::bridge
