#include "raknet/client.h"

#include <future>
#include <vector>

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "foundation/random.h"
#include "raknet/endpoint.h"
#include "raknet/listener.h"
#include "raknet/packets/offline_packets.h"

namespace ferrylink::raknet {

using foundation::AddressedEnvelope;
using foundation::ByteBuffer;
using foundation::EventLoopFuture;
using foundation::SocketAddress;

namespace {

int64_t randomId() {
    // The first number is the low half, the second the high half.
    uint64_t low = foundation::random32();
    uint64_t high = foundation::random32();
    return static_cast<int64_t>(high << 32 | low);
}

}  // namespace

class Client::ClientDatagramHandler : public foundation::ChannelInboundHandler {
public:
    explicit ClientDatagramHandler(std::shared_ptr<Client> client) : client(std::move(client)) {}

    void channelRead(foundation::ChannelHandlerContext&, AddressedEnvelope envelope) override {
        if (client) {
            client->channelRead(std::move(envelope));
        }
    }

    // Strong: the channel drops its handler when it closes, which ends the cycle.
    std::shared_ptr<Client> client;
};

Client::Client() : id(randomId()) {}

std::optional<EventLoopFuture<void>> Client::bind(const std::string& host, int port,
                                                  std::shared_ptr<foundation::EventLoopGroup> group) {
    auto self = shared_from_this();
    bool bound =
        detail::bindEndpoint(group, host, port, *printer, [self](const std::shared_ptr<foundation::Channel>& made) {
            // Kept here, on the loop, before the first datagram can arrive.
            self->channel = made;
            return std::make_shared<ClientDatagramHandler>(self);
        });
    if (!bound) {
        channel.reset();
        return std::nullopt;
    }
    // No tick yet: it runs while pings are under way.
    return channel->closeFuture();
}

void Client::close() {
    shutdown = true;
    if (channel) {
        channel->close();
    }
}

void Client::send(ByteBuffer buffer, const SocketAddress& address) {
    if (channel) {
        channel->send(AddressedEnvelope{address, std::move(buffer), std::nullopt});
    }
}

EventLoopFuture<std::shared_ptr<ServerInfo>> Client::ping(const SocketAddress& address) {
    if (!channel) {
        foundation::fatalFault("ping before a successful bind");
    }
    const auto& loop = channel->eventLoop();
    if (loop->inEventLoop()) {
        return startPing(address);
    }
    // The table of pings belongs to the loop: do the steps there and wait for
    // the future they give, so that a second caller gets the very same one.
    std::promise<EventLoopFuture<std::shared_ptr<ServerInfo>>> started;
    auto result = started.get_future();
    if (!loop->execute(
            [self = shared_from_this(), address, &started] { started.set_value(self->startPing(address)); })) {
        return loop->makeFailedFuture<std::shared_ptr<ServerInfo>>(
            std::make_exception_ptr(std::runtime_error("The event loop has shut down")));
    }
    return result.get();
}

EventLoopFuture<std::shared_ptr<ServerInfo>> Client::startPing(const SocketAddress& address) {
    if (auto found = pings.find(address); found != pings.end()) {
        return found->second.promise.futureResult();  // shared; nothing is sent
    }
    const int64_t now = foundation::Clock::currentTimeMillis();
    auto promise = channel->eventLoop()->makePromise<std::shared_ptr<ServerInfo>>();
    pings.emplace(address, PingEntry{promise, now + PING_TIMEOUT, now});
    sendPing(address, now);
    update();
    return promise.futureResult();
}

void Client::update() {
    if (updateTask && !updateTask->isCancelled()) {
        return;
    }
    std::weak_ptr<Client> weak = shared_from_this();
    const auto period = static_cast<int64_t>(RAKNET_TICK_LENGTH * 1000);
    updateTask = channel->eventLoop()->scheduleRepeatedTask(
        foundation::TimeAmount::zero(), foundation::TimeAmount::milliseconds(period),
        [weak](foundation::RepeatedTask& task) {
            auto self = weak.lock();
            if (!self || self->shutdown) {
                task.cancel();  // pings under way stay unanswered
                return;
            }
            if (self->pings.empty()) {
                task.cancel();  // the next ping starts it again
                return;
            }
            const int64_t now = foundation::Clock::currentTimeMillis();
            std::vector<SocketAddress> pinged;
            pinged.reserve(self->pings.size());
            for (const auto& entry : self->pings) {
                pinged.push_back(entry.first);
            }
            for (const auto& address : pinged) {
                auto found = self->pings.find(address);
                if (found == self->pings.end()) {
                    continue;
                }
                PingEntry& entry = found->second;
                if (entry.timeout <= now) {
                    // Gone before the callbacks run, so that they may ping anew.
                    auto promise = entry.promise;
                    self->pings.erase(found);
                    promise.fail(TimeoutError("Ping timeout"));
                } else if (now - entry.sendTime >= PING_RESEND_INTERVAL) {
                    entry.sendTime = now;
                    self->sendPing(address, now);
                }
            }
        });
}

void Client::sendPing(const SocketAddress& address, int64_t time) {
    UnconnectedPing ping;
    ping.clientTime = time;
    ping.clientId = id;
    auto buffer = ByteBuffer::withCapacity(23);  // grows to the packet's 33 bytes
    ping.encode(buffer);
    send(std::move(buffer), address);
}

void Client::channelRead(AddressedEnvelope envelope) {
    ByteBuffer& data = envelope.data;
    if (data.readableBytes() == 0) {
        return;
    }
    UnconnectedPong pong;
    if (*data.getInteger<uint8_t>(data.readerIndex()) != pong.id) {
        return;
    }
    // A pong that can't be read counts as no answer: the ping goes on until its timeout.
    if (!pong.decode(data) || !pong.hasValidMagic()) {
        return;
    }
    // Only the very address that was pinged counts; the pong's own fields are not compared.
    auto found = pings.find(envelope.remoteAddress);
    if (found == pings.end()) {
        return;
    }
    auto info = ServerInfo::parse(pong.info);
    if (!info) {
        return;
    }
    auto promise = found->second.promise;
    pings.erase(found);
    promise.succeed(std::make_shared<ServerInfo>(std::move(*info)));
}

}  // namespace ferrylink::raknet
