#include "bridge/portal_hop.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

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

void PortalHop::start(std::shared_ptr<foundation::EventLoopGroup> group, std::shared_ptr<raknet::ServerInfo> info) {
    auto made = std::make_shared<raknet::Listener>();
    made->printer = printer();
    {
        std::lock_guard lock(mutex_);
        listener_ = made;
    }
    auto closeFuture = made->bind(connectionListener_, info, hostIp, hostPort, group);
    if (!closeFuture) {
        closeFuture = made->bind(connectionListener_, info, hostIp, hostPort + 1, group);
    }
    // The same two lines whichever port was bound, or none; the line after
    // them says where the bridge really listens.
    print("Server running and listening on " + hostIp + ":" + std::to_string(hostPort));
    print("Server will transfer to " + transferHost + ":" + std::to_string(transferPort));
    if (auto bound = localAddress()) {
        std::string line = "Listening on UDP " + hostAndPort(*bound);
        if (bound->port() != hostPort && hostPort != 0) {
            line += " (port " + std::to_string(hostPort) + " is taken)";
        }
        print(line);
    }

    foundation::DispatchQueue::global().async([closeFuture, self = shared_from_this()] {
        if (!closeFuture) {
            return;
        }
        try {
            closeFuture->wait();
        } catch (...) {
            std::string text = foundation::errorDescription(std::current_exception());
            foundation::DispatchQueue::main().async([self, text] { self->print(text); });
        }
    });
}

void PortalHop::stop() {
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
    {
        std::lock_guard lock(mutex_);
        closing = std::move(listener_);
    }
    if (!closing) {
        fatalFault();
    }
    closing->close();
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
