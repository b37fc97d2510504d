#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <mutex>

#include "foundation/datagram_bootstrap.h"

namespace ferrylink::foundation {
namespace {

// Records every datagram, each read on the loop's thread.
class RecordingHandler : public ChannelInboundHandler {
public:
    void channelRead(ChannelHandlerContext& context, AddressedEnvelope envelope) override {
        std::lock_guard lock(mutex);
        EXPECT_TRUE(context.eventLoop()->inEventLoop());
        received.push_back(std::move(envelope));
        arrived.notify_all();
    }
    void channelReadComplete(ChannelHandlerContext&) override {
        std::lock_guard lock(mutex);
        completedAfter.push_back(received.size());
    }

    bool waitFor(size_t count) {
        std::unique_lock lock(mutex);
        return arrived.wait_for(lock, std::chrono::seconds(5), [&] { return received.size() >= count; });
    }

    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<AddressedEnvelope> received;
    // How many datagrams had come at each end of a read batch.
    std::vector<size_t> completedAfter;
};

struct BoundChannel {
    std::shared_ptr<Channel> channel;
    std::shared_ptr<RecordingHandler> handler;
    int port;
};

BoundChannel bindRecording(const std::shared_ptr<EventLoopGroup>& group, int port = 0) {
    auto handler = std::make_shared<RecordingHandler>();
    auto channel = DatagramBootstrap(group)
                       .channelOption(SocketOption{SOL_SOCKET, SO_REUSEADDR}, 1)
                       .channelInitializer([handler](const std::shared_ptr<Channel>& channel) {
                           return channel->pipeline().addHandler(handler);
                       })
                       .bind("127.0.0.1", port)
                       .wait();
    return {channel, handler, *channel->localAddress()->port()};
}

// A plain socket playing the peer.
class Peer {
public:
    Peer() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof(local));
        timeval timeout{5, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    }
    ~Peer() { ::close(fd_); }

    void sendTo(int port, size_t size) const {
        std::vector<uint8_t> bytes(size);
        for (size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<uint8_t>(i);
        }
        sockaddr_in target{};
        target.sin_family = AF_INET;
        target.sin_port = htons(static_cast<uint16_t>(port));
        target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&target), sizeof(target));
    }

    std::vector<uint8_t> receive() const {
        std::vector<uint8_t> bytes(4096);
        ssize_t count = ::recv(fd_, bytes.data(), bytes.size(), 0);
        bytes.resize(count < 0 ? 0 : static_cast<size_t>(count));
        return bytes;
    }

    SocketAddress address() const {
        sockaddr_storage storage{};
        socklen_t length = sizeof(storage);
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&storage), &length);
        return SocketAddress::fromSockaddr(reinterpret_cast<sockaddr*>(&storage), length);
    }

private:
    int fd_;
};

TEST(DatagramChannelRead, OneCallPerDatagramCutAt2048Bytes) {
    auto group = std::make_shared<MultiThreadedEventLoopGroup>(1);
    auto bound = bindRecording(group);
    Peer peer;
    peer.sendTo(bound.port, 2048);
    peer.sendTo(bound.port, 3000);
    peer.sendTo(bound.port, 1);
    ASSERT_TRUE(bound.handler->waitFor(3));
    group->syncShutdownGracefully();  // the loop is done with the handler
    auto& received = bound.handler->received;
    EXPECT_EQ(received[0].data.readableBytes(), 2048u);
    EXPECT_EQ(received[0].data.readerIndex(), 0u);
    EXPECT_EQ(received[0].data.getInteger<uint8_t>(2047), static_cast<uint8_t>(2047));
    EXPECT_EQ(received[1].data.readableBytes(), 2048u);
    EXPECT_EQ(received[2].data.readableBytes(), 1u);
    // The sender as seen on the wire equals the peer's own address.
    EXPECT_EQ(received[0].remoteAddress, peer.address());
}

TEST(DatagramChannelRead, BurstBeyondOneBatchArrivesWholeInOrderThenReadCompletes) {
    auto group = std::make_shared<MultiThreadedEventLoopGroup>(1);
    auto bound = bindRecording(group);
    Peer peer;
    constexpr size_t BURST = 3 * Channel::BATCH + 5;
    for (size_t i = 0; i < BURST; ++i) {
        peer.sendTo(bound.port, 1 + i % 200);
    }
    ASSERT_TRUE(bound.handler->waitFor(BURST));
    group->syncShutdownGracefully();  // every read batch has ended
    auto& handler = *bound.handler;
    for (size_t i = 0; i < BURST; ++i) {
        EXPECT_EQ(handler.received[i].data.readableBytes(), 1 + i % 200) << i;
    }
    ASSERT_FALSE(handler.completedAfter.empty());
    EXPECT_EQ(handler.completedAfter.back(), BURST);
}

// Runs of equal sizes to one peer go as one segmented send where the kernel
// has it: the peer must still see every datagram on its own, in order.
TEST(DatagramChannelWrite, DatagramsLeaveWholeAndInOrderFromAnyThread) {
    auto group = std::make_shared<MultiThreadedEventLoopGroup>(1);
    auto bound = bindRecording(group);
    Peer peer;
    auto sizeOf = [](uint8_t i) -> size_t { return i % 7 == 6 ? 300 : (i < 40 ? 1200 : 1); };
    for (uint8_t i = 0; i < 90; ++i) {
        ByteBuffer data;
        data.writeInteger(i);
        data.writeBytes(std::vector<uint8_t>(sizeOf(i) - 1, i));
        if (i % 2) {
            bound.channel->send(AddressedEnvelope{peer.address(), data, std::nullopt});
        } else {
            bound.channel->writeAndFlush(AddressedEnvelope{peer.address(), data, std::nullopt});
        }
    }
    for (uint8_t i = 0; i < 90; ++i) {
        auto bytes = peer.receive();
        ASSERT_EQ(bytes.size(), sizeOf(i)) << int(i);
        EXPECT_EQ(bytes[0], i);
    }
    group->syncShutdownGracefully();
}

// SO_REUSEADDR as the phone's platform has it: a live socket keeps its port
// to itself, and a closed one frees it at once for a restart.
TEST(DatagramChannelBind, PortOfALiveChannelIsRefusedEvenWithReuseAndFreeOnceItCloses) {
    auto group = std::make_shared<MultiThreadedEventLoopGroup>(1);
    auto holder = bindRecording(group);
    auto future = DatagramBootstrap(group)
                      .channelOption(SocketOption{SOL_SOCKET, SO_REUSEADDR}, 1)
                      .bind("127.0.0.1", holder.port);
    try {
        future.wait();
        FAIL() << "bound a port that is taken";
    } catch (const IOError& error) {
        EXPECT_EQ(error.code().value(), EADDRINUSE);
        EXPECT_EQ(std::string(error.what()), "bind: Address already in use (errno: 98)");
    }
    holder.channel->close().wait();
    EXPECT_EQ(bindRecording(group, holder.port).port, holder.port);
    group->syncShutdownGracefully();
}

TEST(DatagramChannelBind, UnknownHostFailsWithTheResolverError) {
    auto group = std::make_shared<MultiThreadedEventLoopGroup>(1);
    auto future = DatagramBootstrap(group).bind("no-such-host.invalid", 19132);
    EXPECT_THROW(future.wait(), SocketAddressError);
    group->syncShutdownGracefully();
}

TEST(DatagramChannelClose, CloseFutureCompletesWritesFailAfterwardsAndShutdownClosesTheRest) {
    auto group = std::make_shared<MultiThreadedEventLoopGroup>(1);
    auto bound = bindRecording(group);
    auto other = bindRecording(group);
    auto open = other.channel->closeFuture();
    bound.channel->close();
    EXPECT_NO_THROW(bound.channel->closeFuture().wait());
    Peer peer;
    auto write = bound.channel->writeAndFlush(AddressedEnvelope{peer.address(), ByteBuffer("x"), std::nullopt});
    EXPECT_ANY_THROW(write.wait());
    EXPECT_FALSE(open.isComplete());
    group->syncShutdownGracefully();
    EXPECT_TRUE(open.isComplete());
}

}  // namespace
}  // namespace ferrylink::foundation
