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
// The socket's receive queue: room for the first requests of a thousand
// consoles at once, padded to their MTU of up to 1,500 bytes, which the
// kernel counts at about 2.3 KiB each.
constexpr int RECEIVE_BUFFER_BYTES = 4 << 20;

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
            // The lines of a batch of datagrams leave together at its end.
            if (!lines_) {
                lines_.emplace();
            }
            listener->channelRead(context, std::move(envelope));
        }
    }

    void channelReadComplete(ChannelHandlerContext&) override { lines_.reset(); }

    // Strong: the channel drops its handler when it closes, which ends the cycle.
    std::shared_ptr<Listener> listener;

private:
    std::optional<LineBatch> lines_;
};

Listener::Listener() : id(randomId()) {}

Listener::~Listener() {
    // Every connection in the table holds this Listener, so by the time it
    // goes the table has been emptied, by removals or by close(). Whatever is
    // left is removed as at shutdown, without queueing anything.
    shutdown = true;
    std::vector<std::shared_ptr<Connection>> left;
    for (const auto& entry : connections_) {
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
    bool bound = detail::bindEndpoint(
        group, host, port, *printer,
        [self](const std::shared_ptr<foundation::Channel>& made) {
            // Kept here, on the loop, before the first datagram can arrive.
            self->channel = made;
            return std::make_shared<ServerDatagramHandler>(self);
        },
        RECEIVE_BUFFER_BYTES);
    if (!bound) {
        channel.reset();
        return std::nullopt;
    }
    // No tick yet: it starts with the first connection.
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
    for (const auto& entry : connections_) {
        entry.second->detachFromListener();
    }
    connections_.clear();
    halfOpen_ = 0;
    halfOpenOrder_.clear();
}

void Listener::update() {
    if ((updateTask_ && !updateTask_->isCancelled()) || !channel) {
        return;
    }
    std::weak_ptr<Listener> weak = shared_from_this();
    const auto period = static_cast<int64_t>(RAKNET_TICK_LENGTH * 1000);
    updateTask_ = channel->eventLoop()->scheduleRepeatedTask(
        foundation::TimeAmount::zero(), foundation::TimeAmount::milliseconds(period),
        [weak](foundation::RepeatedTask& task) {
            auto self = weak.lock();
            // With no connection there is nothing to resend, acknowledge or
            // time out: the next connection starts the tick again.
            if (!self || self->shutdown || self->connections_.empty()) {
                task.cancel();
                return;
            }
            // In the table's order, with the time read anew for each
            // connection. A timeout only queues work, but walk a copy anyway.
            std::vector<std::shared_ptr<Connection>> ticking;
            ticking.reserve(self->connections_.size());
            for (const auto& entry : self->connections_) {
                ticking.push_back(entry.second);
            }
            for (const auto& connection : ticking) {
                connection->update(foundation::Clock::currentTimeMillis());
            }
        });
}

void Listener::send(ByteBuffer buffer, const SocketAddress& address) {
    if (channel) {
        channel->send(AddressedEnvelope{address, std::move(buffer), std::nullopt});
    }
}

void Listener::forget(Table::iterator entry) {
    if (entry->second->halfOpen()) {
        --halfOpen_;
    }
    connections_.erase(entry);
}

void Listener::removeConnection(const std::shared_ptr<Connection>& connection, const std::string& reason) {
    const SocketAddress address = connection->address;
    connection->leaving_ = true;
    if (shutdown) {
        auto found = connections_.find(address);
        if (found != connections_.end()) {
            connection->close();
            forget(found);
            connection->detachFromListener();
        }
    } else if (channel) {
        channel->eventLoop()->execute([self = shared_from_this(), connection, address] {
            auto found = self->connections_.find(address);
            if (found == self->connections_.end()) {
                return;  // removed before
            }
            self->printer->print("Removed: " + address.description());
            connection->close();
            self->forget(found);
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
    if (auto found = connections_.find(address); found != connections_.end() && found->second == connection) {
        forget(found);
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

bool Listener::makeRoom() {
    auto full = [this] { return halfOpen_ >= MAX_HALF_OPEN || connections_.size() >= MAX_CONNECTIONS; };
    while (full() && !halfOpenOrder_.empty()) {
        auto oldest = halfOpenOrder_.front().lock();
        halfOpenOrder_.pop_front();
        if (oldest && oldest->attached() && oldest->halfOpen()) {
            oldest->drop("too many half-open connections");
        }
    }
    return !full();
}

void Listener::table(const std::shared_ptr<Connection>& connection) {
    connections_[connection->address] = connection;
    ++halfOpen_;
    // Entries of connections that left the half-open state stay in line until
    // met; sweep them out before they outnumber the live ones.
    if (halfOpenOrder_.size() >= 2 * MAX_HALF_OPEN) {
        std::erase_if(halfOpenOrder_, [](const std::weak_ptr<Connection>& entry) {
            auto held = entry.lock();
            return !held || !held->attached() || !held->halfOpen();
        });
    }
    halfOpenOrder_.push_back(connection);
    update();
}

void Listener::channelRead(ChannelHandlerContext& context, AddressedEnvelope envelope) {
    ByteBuffer& data = envelope.data;
    if (data.readableBytes() == 0) {
        return;
    }
    const uint8_t packetId = *data.getInteger<uint8_t>(data.readerIndex());
    const int64_t now = foundation::Clock::currentTimeMillis();
    const bool opening = packetId == OpenConnectionRequest1().id || packetId == OpenConnectionRequest2().id;
    if (opening && !requestBudget_.allow(envelope.remoteAddress, now)) {
        refuse();
        return;
    }
    std::shared_ptr<Connection> connection;
    if (auto found = connections_.find(envelope.remoteAddress); found != connections_.end()) {
        connection = found->second;
    }
    // A peer whose request 1 waits for its request 2 is no stranger either.
    if (!connection && !requestBudget_.requestOneProtocol(envelope.remoteAddress, now)) {
        // Made once: every ping a console sends is one of these lines.
        static const auto lines = [] {
            std::array<std::string, 256> made;
            for (size_t id = 0; id < made.size(); ++id) {
                made[id] = "Unconnected: " + std::to_string(id);
            }
            return made;
        }();
        printer->print(lines[packetId]);
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
        const bool halfOpen = connection->halfOpen();
        connection->receive(std::move(data));
        // Past the offline handshake now; a connection that left the table
        // on the way has been counted out there.
        if (halfOpen && !connection->halfOpen() && connection->attached()) {
            --halfOpen_;
        }
    }
}

void Listener::refuse() {
    if (excessReportDue_ || !channel) {
        return;
    }
    excessReportDue_ = true;
    channel->eventLoop()->scheduleTask(foundation::TimeAmount::milliseconds(1000), [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self || self->shutdown) {
            return;
        }
        self->excessReportDue_ = false;
        const auto excess = self->requestBudget_.takeExcess();
        self->printer->print("Ignored connection requests over their limit: " + std::to_string(excess.requests) +
                             " from " + std::to_string(excess.sources) + " addresses");
    });
}

const ByteBuffer& Listener::pongTemplate() {
    if (!info) {
        foundation::fatalFault("a listener answers pings only with an advert");
    }
    if (!pongAdvert_ || *pongAdvert_ != *info) {
        pongAdvert_ = *info;
        UnconnectedPong pong;
        pong.clientTime = 0;
        pong.serverId = id;
        pong.info = info->description();
        pongTemplate_ = ByteBuffer::withCapacity(static_cast<uint32_t>(pong.info.size() + 35));
        pong.encode(pongTemplate_);
    }
    return pongTemplate_;
}

void Listener::handleUnconnectedPing(ChannelHandlerContext& context, AddressedEnvelope& envelope) {
    UnconnectedPing ping;
    if (!ping.decode(envelope.data) || !ping.hasValidMagic()) {
        return;
    }
    // The advert's bytes are made once per change; each pong is a copy with the ping's time.
    const ByteBuffer& made = pongTemplate();
    auto buffer = ByteBuffer::withCapacity(made.readableBytes());
    buffer.writeBytes(made.readableView());
    buffer.setInteger(ping.clientTime, 1);
    context.channel().send(AddressedEnvelope{envelope.remoteAddress, std::move(buffer), std::nullopt});
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
    context.channel().send(AddressedEnvelope{envelope.remoteAddress, std::move(buffer), std::nullopt});
    // No connection yet: anyone can send a request 1 from a forged address,
    // and what it costs ends with the reply. The connection comes with the
    // request 2 of the same address.
    if (!connection) {
        requestBudget_.rememberRequestOne(envelope.remoteAddress, request.protocolVersion,
                                          foundation::Clock::currentTimeMillis());
    }
}

void Listener::handleOpenConnectionRequest2(ChannelHandlerContext& context, AddressedEnvelope& envelope,
                                            const std::shared_ptr<Connection>& connection) {
    OpenConnectionRequest2 request;
    if (!request.decode(envelope.data) || !request.hasValidMagic()) {
        return;
    }
    const SocketAddress& peer = envelope.remoteAddress;
    const auto protocolVersion =
        connection ? std::nullopt : requestBudget_.requestOneProtocol(peer, foundation::Clock::currentTimeMillis());
    // A peer that can't be tabled gets no answer at all.
    if (protocolVersion && !makeRoom()) {
        return;
    }
    printer->print("OpenConnectionReply2");
    const int32_t mtu = connectionMtu(request.mtu, peer);
    OpenConnectionReply2 reply;
    reply.serverId = id;
    reply.socketAddress = peer;
    reply.mtu = mtu;
    auto buffer = ByteBuffer::withCapacity(31);
    reply.encode(buffer);
    context.channel().send(AddressedEnvelope{envelope.remoteAddress, std::move(buffer), std::nullopt});
    // A peer that skipped request 1 gets its reply and nothing else.
    if (connection) {
        connection->setMtu(mtu);
    } else if (protocolVersion) {
        requestBudget_.forgetRequestOne(peer);
        table(std::make_shared<Connection>(shared_from_this(), mtu, peer, *protocolVersion));
    }
}

}  // namespace ferrylink::raknet
