#include "raknet/listener.h"

#include <algorithm>

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "foundation/random.h"
#include "raknet/connection.h"
#include "raknet/endpoint.h"
#include "raknet/packets/offline_packets.h"

namespace ferrylink::raknet {

using foundation::AddressedEnvelope;
using foundation::ByteBuffer;
using foundation::ChannelHandlerContext;
using foundation::SocketAddress;

namespace {

constexpr int32_t MINIMUM_MTU = 576;
constexpr int32_t MAXIMUM_MTU = 1400;
constexpr int32_t IPV6_HEADER_ALLOWANCE = 40;
constexpr int32_t IPV4_HEADER_ALLOWANCE = 20;
constexpr int32_t UDP_HEADER_ALLOWANCE = 8;

int64_t randomId() {
    // The first number is the low half, the second the high half.
    uint64_t low = foundation::random32();
    uint64_t high = foundation::random32();
    return static_cast<int64_t>(high << 32 | low);
}

}  // namespace

class Listener::ServerDatagramHandler : public foundation::ChannelInboundHandler {
public:
    explicit ServerDatagramHandler(std::shared_ptr<Listener> listener) : listener(std::move(listener)) {}

    void channelRead(ChannelHandlerContext& context, AddressedEnvelope envelope) override {
        if (listener) {
            listener->channelRead(context, std::move(envelope));
        }
    }

    // Strong: the channel drops its handler when it closes, which ends the cycle.
    std::shared_ptr<Listener> listener;
};

Listener::Listener() : id(randomId()) {}

Listener::~Listener() {
    // Every connection in the table holds this Listener, so by the time it
    // goes the table has been emptied, by removals or by close(). Whatever is
    // left is removed as at shutdown, without queueing anything.
    shutdown = true;
    std::vector<std::shared_ptr<Connection>> left;
    for (const auto& entry : connections) {
        left.push_back(entry.second);
    }
    for (const auto& connection : left) {
        removeConnection(connection, "shutdown");
    }
}

std::optional<foundation::EventLoopFuture<void>> Listener::bind(
    std::shared_ptr<ConnectionListener> listenerOfConnections, std::shared_ptr<ServerInfo> advert,
    const std::string& host, int port, std::shared_ptr<foundation::EventLoopGroup> loopGroup) {
    // The advert and the offline replies name the same server.
    advert->serverId = id;
    info = std::move(advert);
    connectionListener = std::move(listenerOfConnections);
    group = std::move(loopGroup);

    auto self = shared_from_this();
    bool bound =
        detail::bindEndpoint(group, host, port, *printer, [self](const std::shared_ptr<foundation::Channel>& made) {
            // Kept here, on the loop, before the first datagram can arrive.
            self->channel = made;
            return std::make_shared<ServerDatagramHandler>(self);
        });
    if (!bound) {
        channel.reset();
        return std::nullopt;
    }
    update();
    return channel->closeFuture();
}

void Listener::close() {
    shutdown = true;
    if (!channel) {
        return;
    }
    channel->close();
    // Connections and Listener hold each other; with the channel shut nothing
    // reaches them any more, so let go on both sides.
    auto loop = channel->eventLoop();
    if (!loop->execute([self = shared_from_this()] { self->releaseConnections(); })) {
        releaseConnections();  // the loop has stopped: nobody else touches the table
    }
}

void Listener::releaseConnections() {
    for (const auto& entry : connections) {
        entry.second->detachFromListener();
    }
    connections.clear();
}

void Listener::update() {
    std::weak_ptr<Listener> weak = shared_from_this();
    const auto period = static_cast<int64_t>(RAKNET_TICK_LENGTH * 1000);
    updateTask = channel->eventLoop()->scheduleRepeatedTask(
        foundation::TimeAmount::zero(), foundation::TimeAmount::milliseconds(period),
        [weak](foundation::RepeatedTask& task) {
            auto self = weak.lock();
            if (!self || self->shutdown) {
                task.cancel();
                return;
            }
            // In the table's order, with the time read anew for each
            // connection. A removal only queues work, but walk a copy anyway.
            std::vector<std::shared_ptr<Connection>> ticking;
            ticking.reserve(self->connections.size());
            for (const auto& entry : self->connections) {
                ticking.push_back(entry.second);
            }
            for (const auto& connection : ticking) {
                connection->update(foundation::Clock::currentTimeMillis());
            }
        });
}

void Listener::send(ByteBuffer buffer, const SocketAddress& address) {
    if (channel) {
        channel->writeAndFlush(AddressedEnvelope{address, std::move(buffer), std::nullopt});
    }
}

void Listener::removeConnection(const std::shared_ptr<Connection>& connection, const std::string& reason) {
    const SocketAddress address = connection->address;
    connection->leaving_ = true;
    if (shutdown) {
        auto found = connections.find(address);
        if (found != connections.end()) {
            connection->close();
            connections.erase(found);
            connection->detachFromListener();
        }
    } else if (channel) {
        channel->eventLoop()->execute([self = shared_from_this(), connection, address] {
            auto found = self->connections.find(address);
            if (found == self->connections.end()) {
                return;  // removed before
            }
            self->printer->print("Removed: " + address.description());
            connection->close();
            self->connections.erase(found);
            // Out of the table it gets no more datagrams or ticks; whoever
            // still holds it mustn't keep this Listener alive through it.
            connection->detachFromListener();
        });
    }
    // At once and on every call, ahead of the queued removal.
    if (connectionListener) {
        connectionListener->onCloseConnection(address, reason);
    }
}

void Listener::dropConnection(const std::shared_ptr<Connection>& connection, const std::string& reason) {
    const SocketAddress address = connection->address;
    if (auto found = connections.find(address); found != connections.end() && found->second == connection) {
        connections.erase(found);
    }
    connection->detachFromListener();
    if (connectionListener) {
        connectionListener->onCloseConnection(address, reason);
    }
}

int32_t Listener::connectionMtu(int32_t requested, const SocketAddress& peer) {
    int32_t mtu = std::max(std::min(requested, MAXIMUM_MTU), MINIMUM_MTU);
    mtu -= peer.kind() == SocketAddress::Kind::v6 ? IPV6_HEADER_ALLOWANCE : IPV4_HEADER_ALLOWANCE;
    return mtu - UDP_HEADER_ALLOWANCE;
}

void Listener::channelRead(ChannelHandlerContext& context, AddressedEnvelope envelope) {
    ByteBuffer& data = envelope.data;
    if (data.readableBytes() == 0) {
        return;
    }
    const uint8_t packetId = *data.getInteger<uint8_t>(data.readerIndex());
    std::shared_ptr<Connection> connection;
    if (auto found = connections.find(envelope.remoteAddress); found != connections.end()) {
        connection = found->second;
    }
    if (!connection) {
        printer->print("Unconnected: " + std::to_string(packetId));
    }
    // The offline ids take the offline path also from a peer with a connection.
    // An offline datagram that can't be read is dropped like one with a wrong
    // magic, without a line of its own: there is no connection to close, and a
    // line per datagram would let anyone write the console full.
    if (packetId == OpenConnectionRequest2().id) {
        handleOpenConnectionRequest2(context, envelope, connection);
    } else if (packetId == OpenConnectionRequest1().id) {
        handleOpenConnectionRequest1(context, envelope, connection);
    } else if (packetId == UnconnectedPing().id) {
        handleUnconnectedPing(context, envelope);
    } else if (connection) {
        connection->receive(std::move(data));
    }
}

void Listener::handleUnconnectedPing(ChannelHandlerContext& context, AddressedEnvelope& envelope) {
    UnconnectedPing ping;
    if (!ping.decode(envelope.data) || !ping.hasValidMagic()) {
        return;
    }
    if (!info) {
        foundation::fatalFault("a listener answers pings only with an advert");
    }
    UnconnectedPong pong;
    pong.clientTime = ping.clientTime;
    pong.serverId = id;
    pong.info = info->description();
    auto buffer = ByteBuffer::withCapacity(static_cast<uint32_t>(pong.info.size() + 35));
    pong.encode(buffer);
    context.writeAndFlush(AddressedEnvelope{envelope.remoteAddress, std::move(buffer), std::nullopt});
}

void Listener::handleOpenConnectionRequest1(ChannelHandlerContext& context, AddressedEnvelope& envelope,
                                            const std::shared_ptr<Connection>& connection) {
    OpenConnectionRequest1 request;
    if (!request.decode(envelope.data) || !request.hasValidMagic()) {
        return;
    }
    printer->print("RakNet protocol: " + std::to_string(request.protocolVersion));
    ByteBuffer buffer;
    if (std::ranges::find(RAKNET_PROTOCOL_VERSIONS, request.protocolVersion) == RAKNET_PROTOCOL_VERSIONS.end()) {
        printer->print("IncompatibleProtocolVersion");
        buffer = ByteBuffer::withCapacity(26);
        IncompatibleProtocolVersion reply;
        reply.protocolVersion = INCOMPATIBLE_REPLY_VERSION;
        reply.serverId = id;
        reply.encode(buffer);
    } else {
        printer->print("OpenConnectionReply1");
        buffer = ByteBuffer::withCapacity(28);
        OpenConnectionReply1 reply;
        reply.serverId = id;
        reply.mtu = request.mtu;  // as asked; the clamp is for the connection
        reply.encode(buffer);
    }
    context.writeAndFlush(AddressedEnvelope{envelope.remoteAddress, std::move(buffer), std::nullopt});

    // Also for an incompatible peer: its entry lives until the silence timeout.
    if (!connection) {
        const SocketAddress& peer = envelope.remoteAddress;
        connections[peer] = std::make_shared<Connection>(shared_from_this(), connectionMtu(request.mtu, peer), peer,
                                                         request.protocolVersion);
    }
}

void Listener::handleOpenConnectionRequest2(ChannelHandlerContext& context, AddressedEnvelope& envelope,
                                            const std::shared_ptr<Connection>& connection) {
    OpenConnectionRequest2 request;
    if (!request.decode(envelope.data) || !request.hasValidMagic()) {
        return;
    }
    printer->print("OpenConnectionReply2");
    const int32_t mtu = connectionMtu(request.mtu, envelope.remoteAddress);
    OpenConnectionReply2 reply;
    reply.serverId = id;
    reply.socketAddress = envelope.remoteAddress;
    reply.mtu = mtu;
    auto buffer = ByteBuffer::withCapacity(31);
    reply.encode(buffer);
    context.writeAndFlush(AddressedEnvelope{envelope.remoteAddress, std::move(buffer), std::nullopt});
    // A peer that skipped request 1 gets its reply and nothing else.
    if (connection) {
        connection->mtu = mtu;
    }
}

}  // namespace ferrylink::raknet
