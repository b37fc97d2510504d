#include "foundation/channel.h"

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace ferrylink::foundation {

namespace {

std::string describeErrno(int errorNumber, const std::string& call) {
    return call + ": " + std::strerror(errorNumber) + " (errno: " + std::to_string(errorNumber) + ")";
}

// Datagrams in one segmented send at most, and their bytes: within what
// every kernel with UDP GSO takes, and within one IP packet's length.
constexpr size_t UDP_SEGMENTS_PER_SEND = 64;
constexpr size_t UDP_SEGMENTED_BYTES = 60000;

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

struct Channel::Batch {
    Batch() {
        for (size_t i = 0; i < BATCH; ++i) {
            readVectors[i] = iovec{scratch.data() + i * receiveBufferSize, receiveBufferSize};
            reads[i].msg_hdr.msg_iov = &readVectors[i];
            reads[i].msg_hdr.msg_iovlen = 1;
            reads[i].msg_hdr.msg_name = &peers[i];
            reads[i].msg_hdr.msg_namelen = sizeof(sockaddr_storage);
        }
    }

    // Reads: set up once, each message with its own piece of scratch and its
    // own peer; a read changes only the lengths, which are put back after it.
    std::array<mmsghdr, BATCH> reads{};
    std::array<iovec, BATCH> readVectors{};
    std::array<sockaddr_storage, BATCH> peers{};
    // Datagrams land here, then are copied into buffers of their own length.
    std::vector<uint8_t> scratch = std::vector<uint8_t>(static_cast<size_t>(BATCH) * receiveBufferSize);
    // Sends: up to UDP_SEGMENTS_PER_SEND vectors per message.
    std::array<mmsghdr, BATCH> headers{};
    std::vector<iovec> vectors = std::vector<iovec>(BATCH * UDP_SEGMENTS_PER_SEND);
    std::array<std::array<char, CMSG_SPACE(sizeof(uint16_t))>, BATCH> controls{};
    // How many queued writes each message of a send covers.
    std::array<size_t, BATCH> covers{};
};

Channel::Channel(std::shared_ptr<EventLoop> eventLoop, int fd)
    : eventLoop_(std::move(eventLoop)),
      fd_(fd),
      pipeline_(*this),
      closePromise_(eventLoop_->makePromise<void>()),
      batch_(std::make_unique<Batch>()) {}

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

void Channel::send(AddressedEnvelope envelope) {
    if (eventLoop_->inEventLoop()) {
        write(std::move(envelope), std::nullopt);
        return;
    }
    auto carried = std::make_shared<AddressedEnvelope>(std::move(envelope));
    (void)eventLoop_->execute([self = shared_from_this(), carried] { self->write(std::move(*carried), std::nullopt); });
}

void Channel::write(AddressedEnvelope envelope, std::optional<EventLoopPromise<void>> promise) {
    if (closed_) {
        if (promise) {
            promise->fail(ChannelClosedError());
        }
        return;
    }
    pending_.push_back(PendingWrite{std::move(envelope), std::move(promise)});
    // Everything written while the loop works through what it has in hand
    // leaves together once it is done: a burst of replies costs one system
    // call, not one each.
    if (!flushScheduled_ && !wantsWritable_) {
        flushScheduled_ = true;
        eventLoop_->execute([self = shared_from_this()] {
            self->flushScheduled_ = false;
            self->flushPending();
        });
    }
}

size_t Channel::segmentRun(size_t first) const {
    if (!segmentation_) {
        return 1;
    }
    const auto& head = pending_[first].envelope;
    const size_t size = head.data.readableBytes();
    size_t total = size;
    size_t count = 1;
    // Every segment but the last has the size of the first one.
    while (first + count < pending_.size() && count < UDP_SEGMENTS_PER_SEND) {
        const auto& next = pending_[first + count].envelope;
        const size_t nextSize = next.data.readableBytes();
        if (nextSize == 0 || nextSize > size || total + nextSize > UDP_SEGMENTED_BYTES ||
            !(next.remoteAddress == head.remoteAddress)) {
            break;
        }
        total += nextSize;
        ++count;
        if (nextSize < size) {
            break;
        }
    }
    return count;
}

// Not inlined: GCC 12 at -O3 takes the promise moved out of an optional, once
// inside flushPending, for one that may be unset.
[[gnu::noinline]] void Channel::completeFront(size_t count, int errorNumber) {
    for (size_t i = 0; i < count; ++i) {
        auto promise = std::move(pending_.front().promise);
        pending_.pop_front();
        if (!promise) {
            continue;
        }
        if (errorNumber == 0) {
            promise->succeed();
        } else {
            promise->fail(IOError(errorNumber, "sendmmsg"));
        }
    }
}

void Channel::flushPending() {
    Batch& batch = *batch_;
    while (!pending_.empty() && !closed_) {
        size_t taken = 0;
        size_t vectorsUsed = 0;
        int messages = 0;
        for (; messages < BATCH && taken < pending_.size(); ++messages) {
            const size_t run = segmentRun(taken);
            mmsghdr& header = batch.headers[static_cast<size_t>(messages)];
            header = mmsghdr{};
            auto& remote = pending_[taken].envelope.remoteAddress;
            header.msg_hdr.msg_name = const_cast<sockaddr*>(remote.sockaddrPointer());
            header.msg_hdr.msg_namelen = remote.sockaddrLength();
            header.msg_hdr.msg_iov = &batch.vectors[vectorsUsed];
            header.msg_hdr.msg_iovlen = run;
            for (size_t i = 0; i < run; ++i) {
                auto bytes = pending_[taken + i].envelope.data.readableView();
                batch.vectors[vectorsUsed++] = iovec{const_cast<uint8_t*>(bytes.data()), bytes.size()};
            }
            if (run > 1) {
                auto& control = batch.controls[static_cast<size_t>(messages)];
                header.msg_hdr.msg_control = control.data();
                header.msg_hdr.msg_controllen = control.size();
                cmsghdr* segment = CMSG_FIRSTHDR(&header.msg_hdr);
                segment->cmsg_level = SOL_UDP;
                segment->cmsg_type = UDP_SEGMENT;
                segment->cmsg_len = CMSG_LEN(sizeof(uint16_t));
                const auto size = static_cast<uint16_t>(pending_[taken].envelope.data.readableBytes());
                std::memcpy(CMSG_DATA(segment), &size, sizeof(size));
            }
            batch.covers[static_cast<size_t>(messages)] = run;
            taken += run;
        }
        int sent = ::sendmmsg(fd_, batch.headers.data(), static_cast<unsigned>(messages), MSG_NOSIGNAL);
        if (sent < 0) {
            const int errorNumber = errno;
            if (errorNumber == EAGAIN || errorNumber == EWOULDBLOCK) {
                if (!wantsWritable_) {
                    wantsWritable_ = true;
                    eventLoop_->modifyDescriptor(fd_, EPOLLIN | EPOLLOUT);
                }
                return;
            }
            if (batch.covers[0] > 1 && (errorNumber == EINVAL || errorNumber == EIO || errorNumber == ENOPROTOOPT)) {
                segmentation_ = false;  // a kernel or device without it: one datagram per message from now on
                continue;
            }
            // The first message can't be sent at all: it alone fails.
            completeFront(batch.covers[0], errorNumber);
            continue;
        }
        for (int i = 0; i < sent; ++i) {
            completeFront(batch.covers[static_cast<size_t>(i)], 0);
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
    Batch& batch = *batch_;
    ChannelHandlerContext context(*this);
    // Keep the handler alive across the calls even if it clears itself.
    auto handler = handler_;
    int read = 0;
    while (read < READS_PER_WAKE && !closed_) {
        int received = ::recvmmsg(fd_, batch.reads.data(), BATCH, MSG_DONTWAIT, nullptr);
        if (received < 0) {
            // EAGAIN: the socket is empty. An error queued on the socket (an
            // ICMP report of an earlier send) comes out here once and is dropped.
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                break;
            }
            continue;
        }
        read += received;
        for (int i = 0; i < received && !closed_; ++i) {
            auto& header = batch.reads[static_cast<size_t>(i)];
            const socklen_t peerLength = header.msg_hdr.msg_namelen;
            header.msg_hdr.msg_namelen = sizeof(sockaddr_storage);
            header.msg_hdr.msg_flags = 0;
            if (!handler) {
                continue;
            }
            // A longer datagram has been cut to the buffer's size.
            auto bytes = std::span<const uint8_t>(batch.scratch.data() + static_cast<size_t>(i) * receiveBufferSize,
                                                  std::min<size_t>(header.msg_len, receiveBufferSize));
            AddressedEnvelope envelope{
                SocketAddress::fromSockaddr(reinterpret_cast<const sockaddr*>(&batch.peers[static_cast<size_t>(i)]),
                                            peerLength),
                allocator_.buffer(bytes), std::nullopt};
            handler->channelRead(context, std::move(envelope));
        }
        if (received < BATCH) {
            break;
        }
    }
    if (handler && read > 0 && !closed_) {
        handler->channelReadComplete(context);
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
        if (write.promise) {
            write.promise->fail(ChannelClosedError());
        }
    }
    // The handler usually holds its endpoint, which holds this channel: let go here.
    handler_.reset();
    eventLoop_->forgetChannel(this);
    closePromise_.succeed();
}

}  // namespace ferrylink::foundation
