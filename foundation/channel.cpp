#include "foundation/channel.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ferrylink::foundation {

namespace {

std::string describeErrno(int errorNumber, const std::string& call) {
    return call + ": " + std::strerror(errorNumber) + " (errno: " + std::to_string(errorNumber) + ")";
}

class ChannelClosedError : public std::runtime_error {
public:
    ChannelClosedError() : std::runtime_error("The channel is already closed") {}
};

}  // namespace

IOError::IOError(int errorNumber, const std::string& call)
    : std::system_error(errorNumber, std::generic_category(), call),
      description_(describeErrno(errorNumber, call)) {}

const std::shared_ptr<EventLoop>& ChannelHandlerContext::eventLoop() const { return channel_.eventLoop(); }

EventLoopFuture<void> ChannelHandlerContext::writeAndFlush(AddressedEnvelope envelope) const {
    return channel_.writeAndFlush(std::move(envelope));
}

EventLoopFuture<void> ChannelPipeline::addHandler(std::shared_ptr<ChannelInboundHandler> handler) {
    auto loop = channel_.eventLoop();
    auto promise = loop->makePromise<void>();
    auto install = [channel = channel_.shared_from_this(), handler = std::move(handler), promise] {
        channel->setHandler(handler);
        promise.succeed();
    };
    if (loop->inEventLoop()) {
        install();
    } else if (!loop->execute(install)) {
        promise.fail(ChannelClosedError());
    }
    return promise.futureResult();
}

Channel::Channel(std::shared_ptr<EventLoop> eventLoop, int fd)
    : eventLoop_(std::move(eventLoop)), fd_(fd), pipeline_(*this), closePromise_(eventLoop_->makePromise<void>()) {}

Channel::~Channel() {
    if (!closed_ && fd_ >= 0) {
        ::close(fd_);
    }
}

std::optional<SocketAddress> Channel::localAddress() const {
    sockaddr_storage storage{};
    socklen_t length = sizeof(storage);
    if (::getsockname(fd_, reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
        return std::nullopt;
    }
    return SocketAddress::fromSockaddr(reinterpret_cast<sockaddr*>(&storage), length);
}

void Channel::activate() {
    active_ = true;
    eventLoop_->trackChannel(shared_from_this());
    eventLoop_->registerDescriptor(fd_, EPOLLIN, [this](uint32_t events) { onEvents(events); });
}

EventLoopFuture<void> Channel::writeAndFlush(AddressedEnvelope envelope) {
    auto promise = eventLoop_->makePromise<void>();
    if (eventLoop_->inEventLoop()) {
        write(std::move(envelope), promise);
    } else {
        auto carried = std::make_shared<AddressedEnvelope>(std::move(envelope));
        if (!eventLoop_->execute([self = shared_from_this(), carried, promise] {
                self->write(std::move(*carried), promise);
            })) {
            promise.fail(ChannelClosedError());
        }
    }
    return promise.futureResult();
}

void Channel::write(AddressedEnvelope envelope, EventLoopPromise<void> promise) {
    if (closed_) {
        promise.fail(ChannelClosedError());
        return;
    }
    pending_.push_back(PendingWrite{std::move(envelope), std::move(promise)});
    flushPending();
}

void Channel::flushPending() {
    while (!pending_.empty()) {
        auto& next = pending_.front();
        auto bytes = next.envelope.data.readableView();
        ssize_t sent = ::sendto(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL,
                                next.envelope.remoteAddress.sockaddrPointer(),
                                next.envelope.remoteAddress.sockaddrLength());
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!wantsWritable_) {
                wantsWritable_ = true;
                eventLoop_->modifyDescriptor(fd_, EPOLLIN | EPOLLOUT);
            }
            return;
        }
        auto promise = std::move(next.promise);
        int errorNumber = errno;
        pending_.pop_front();
        if (sent < 0) {
            promise.fail(IOError(errorNumber, "sendto"));
        } else {
            promise.succeed();
        }
    }
    if (wantsWritable_) {
        wantsWritable_ = false;
        eventLoop_->modifyDescriptor(fd_, EPOLLIN);
    }
}

void Channel::onEvents(uint32_t events) {
    if (events & EPOLLOUT) {
        flushPending();
    }
    if (events & (EPOLLIN | EPOLLERR)) {
        readDatagrams();
    }
}

void Channel::readDatagrams() {
    // A bounded batch per wake-up keeps one busy peer from starving timers.
    for (int i = 0; i < 64 && !closed_; ++i) {
        sockaddr_storage peer{};
        socklen_t peerLength = sizeof(peer);
        auto buffer = allocator_.buffer(receiveBufferSize);
        ssize_t received = 0;
        buffer.writeWithUnsafeMutableBytes(receiveBufferSize, [&](uint8_t* bytes, size_t room) -> size_t {
            received = ::recvfrom(fd_, bytes, room, 0, reinterpret_cast<sockaddr*>(&peer), &peerLength);
            return received > 0 ? static_cast<size_t>(received) : 0;
        });
        if (received < 0) {
            // EAGAIN ends the batch; ICMP errors reported on the socket are dropped.
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                return;
            }
            continue;
        }
        if (!handler_) {
            continue;
        }
        AddressedEnvelope envelope{SocketAddress::fromSockaddr(reinterpret_cast<sockaddr*>(&peer), peerLength),
                                   std::move(buffer), std::nullopt};
        ChannelHandlerContext context(*this);
        // Keep the handler alive across the call even if it clears itself.
        auto handler = handler_;
        handler->channelRead(context, std::move(envelope));
    }
}

EventLoopFuture<void> Channel::close() {
    auto promise = eventLoop_->makePromise<void>();
    auto doClose = [self = shared_from_this(), promise] {
        if (self->closed_) {
            promise.fail(ChannelClosedError());
            return;
        }
        self->closeNow();
        promise.succeed();
    };
    if (eventLoop_->inEventLoop()) {
        doClose();
    } else if (!eventLoop_->execute(doClose)) {
        promise.fail(ChannelClosedError());
    }
    return promise.futureResult();
}

void Channel::closeNow() {
    closed_ = true;
    if (active_) {
        eventLoop_->unregisterDescriptor(fd_);
    }
    ::shutdown(fd_, SHUT_RDWR);
    ::close(fd_);
    fd_ = -1;
    auto abandoned = std::move(pending_);
    pending_.clear();
    for (auto& write : abandoned) {
        write.promise.fail(ChannelClosedError());
    }
    // The handler usually holds its endpoint, which holds this channel: let go here.
    handler_.reset();
    eventLoop_->forgetChannel(this);
    closePromise_.succeed();
}

}  // namespace ferrylink::foundation
