#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "foundation/byte_buffer.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"

namespace ferrylink::foundation {

class Channel;

// One datagram and the peer it came from or goes to.
struct AddressedEnvelope {
    struct Metadata {};

    SocketAddress remoteAddress;
    ByteBuffer data;
    // Never set when sending; ignored when receiving.
    std::optional<Metadata> metadata;
};

// A socket call that failed, described as "call: reason (errno: n)".
class IOError : public std::system_error {
public:
    IOError(int errorNumber, const std::string& call);
    // Exactly "call: reason (errno: n)", without the reason system_error would append again.
    const char* what() const noexcept override { return description_.c_str(); }

private:
    std::string description_;
};

class ChannelHandlerContext {
public:
    explicit ChannelHandlerContext(Channel& channel) : channel_(channel) {}

    Channel& channel() const { return channel_; }
    const std::shared_ptr<EventLoop>& eventLoop() const;
    EventLoopFuture<void> writeAndFlush(AddressedEnvelope envelope) const;

private:
    Channel& channel_;
};

// The one kind of handler: it is given every datagram the channel reads, on
// the loop's thread, one call per datagram.
class ChannelInboundHandler {
public:
    virtual ~ChannelInboundHandler() = default;
    virtual void channelRead(ChannelHandlerContext& context, AddressedEnvelope envelope) = 0;
    // After the last datagram of the batch that one wake of the loop read.
    virtual void channelReadComplete(ChannelHandlerContext&) {}
};

class ChannelPipeline {
public:
    explicit ChannelPipeline(Channel& channel) : channel_(channel) {}
    // Installs the handler on the loop's thread (directly when already there).
    EventLoopFuture<void> addHandler(std::shared_ptr<ChannelInboundHandler> handler);

private:
    Channel& channel_;
};

// A bound datagram socket driven by one event loop.
//
// Reads take what the socket holds at each wake, a batch per system call
// (recvmmsg). Writes queue up on the loop and leave together once the loop
// has run the work in hand (sendmmsg), datagrams of one size to one peer in a
// row as one segmented send where the kernel offers it (UDP GSO).
class Channel : public std::enable_shared_from_this<Channel> {
public:
    // Datagrams are read into buffers of this size; longer ones are cut.
    static constexpr uint32_t receiveBufferSize = 2048;
    // Datagrams per recvmmsg and messages per sendmmsg.
    static constexpr int BATCH = 64;
    // Datagrams read at one wake at most, so that timers and queued work
    // still get their turn under a flood.
    static constexpr int READS_PER_WAKE = 1024;

    Channel(std::shared_ptr<EventLoop> eventLoop, int fd);
    ~Channel();

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    const std::shared_ptr<EventLoop>& eventLoop() const { return eventLoop_; }
    const ByteBufferAllocator& allocator() const { return allocator_; }
    ChannelPipeline& pipeline() { return pipeline_; }
    // The bound address; handy with port 0.
    std::optional<SocketAddress> localAddress() const;

    // Sends the readable bytes of `data` as one datagram, from any thread, in
    // order per channel. Datagrams the socket can't take now wait their turn.
    EventLoopFuture<void> writeAndFlush(AddressedEnvelope envelope);
    // The same for a caller that doesn't look at the outcome: no future is made.
    void send(AddressedEnvelope envelope);
    // Closes the socket in full, asynchronously; no handler call comes after.
    EventLoopFuture<void> close();
    // Completes when the channel has closed, whoever closed it.
    EventLoopFuture<void> closeFuture() const { return closePromise_.futureResult(); }

    // Loop thread only: hooks the socket into the poller.
    void activate();
    void setHandler(std::shared_ptr<ChannelInboundHandler> handler) { handler_ = std::move(handler); }

private:
    struct PendingWrite {
        AddressedEnvelope envelope;
        std::optional<EventLoopPromise<void>> promise;
    };
    struct Batch;

    void write(AddressedEnvelope envelope, std::optional<EventLoopPromise<void>> promise);
    void closeNow();
    void onEvents(uint32_t events);
    void readDatagrams();
    void flushPending();
    // How many writes from the front of the queue go as one segmented send.
    size_t segmentRun(size_t first) const;
    void completeFront(size_t count, int errorNumber);

    std::shared_ptr<EventLoop> eventLoop_;
    int fd_;
    ByteBufferAllocator allocator_;
    ChannelPipeline pipeline_;
    EventLoopPromise<void> closePromise_;
    // Loop thread only.
    bool closed_ = false;
    bool active_ = false;
    bool wantsWritable_ = false;
    bool flushScheduled_ = false;
    // Until the kernel refuses a segmented send.
    bool segmentation_ = true;
    std::shared_ptr<ChannelInboundHandler> handler_;
    std::deque<PendingWrite> pending_;
    // Room for system calls' arguments, kept between them.
    std::unique_ptr<Batch> batch_;
};

}  // namespace ferrylink::foundation
