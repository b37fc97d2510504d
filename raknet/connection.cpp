// The way out of a Connection: numbering, splitting, datagrams, the tick.
#include "raknet/connection.h"

#include <bit>

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "raknet/listener.h"
#include "raknet/packets/connected_packets.h"
#include "raknet/packets/offline_packets.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::Clock;
using foundation::fatalFault;

namespace {

// Room of a datagram's own header, as the split test counts it.
constexpr int32_t DATAGRAM_HEADER_ALLOWANCE = 4;
// What a fragment's payload leaves of the MTU: 28 + 4 + 2.
constexpr int32_t FRAGMENT_OVERHEAD = 34;
constexpr int32_t ORDER_CHANNELS = 32;

const Reliability& kindOf(const EncapsulatedPacket& frame) {
    if (!frame.reliability) {
        fatalFault("frame without a reliability");
    }
    return *frame.reliability;
}

// Kinds above UNRELIABLE_SEQUENCED carry a message index on the way out.
bool takesMessageIndex(const Reliability& kind) { return kind.id > 1; }

EncapsulatedPacket frameOf(const Reliability& kind, ByteBuffer payload) {
    EncapsulatedPacket frame;
    frame.reliability = kind;
    frame.buffer = std::move(payload);
    return frame;
}

}  // namespace

Connection::Connection(std::shared_ptr<Listener> owner, int32_t mtu, foundation::SocketAddress address,
                       int32_t protocolVersion)
    : address(std::move(address)),
      protocolVersion(protocolVersion),
      listener_(owner),
      loop_(owner && owner->channel ? owner->channel->eventLoop() : nullptr),
      mtu_(mtu),
      splitAssembler_(owner ? owner->fragmentMemory() : std::make_shared<FragmentMemory>()),
      lastUpdate_(Clock::currentTimeMillis()),
      lastPing_(lastUpdate_) {}

void Connection::sendBuffer(const ByteBuffer& buffer) { queueSend(buffer, Priority::NORMAL); }

void Connection::sendBufferImmediate(const ByteBuffer& buffer) { queueSend(buffer, Priority::IMMEDIATE); }

void Connection::queueSend(const ByteBuffer& buffer, Priority priority) {
    if (!loop_) {
        return;
    }
    loop_->execute([self = shared_from_this(), payload = buffer, priority] {
        if (self->dropped_) {
            return;
        }
        EncapsulatedPacket frame = frameOf(Reliability::RELIABLE_ORDERED, payload);
        frame.orderChannel = 0;
        self->addToQueue(std::move(frame), priority);
    });
}

void Connection::disconnect(std::string reason) {
    if (loop_ && !loop_->inEventLoop()) {
        loop_->execute([self = shared_from_this(), reason = std::move(reason)] { self->leave(reason); });
        return;
    }
    leave(reason);
}

void Connection::drop(const std::string& reason) {
    if (!dropped_ && !leaving_ && listener_) {
        listener_->printer->print("Dropped " + address.description() + ": " + reason);
    }
    leave(reason);
}

void Connection::leave(const std::string& reason) {
    // Out of the table already, by any path: the listener of connections has heard of it.
    if (dropped_ || leaving_ || !listener_) {
        return;
    }
    close();
    dropped_ = true;
    listener_->dropConnection(shared_from_this(), reason);
}

void Connection::print(const std::string& line) {
    if (listener_ && listener_->printer) {
        listener_->printer->print(line);
    }
}

void Connection::update(int64_t time) {
    if (dropped_) {
        return;
    }
    ++tick_;
    if (time - lastUpdate_ >= SILENCE_TIMEOUT) {
        if (listener_) {
            listener_->removeConnection(shared_from_this(), "timeout");
        }
        return;
    }
    // Also before the connected handshake has ended.
    if (lastPing_ + PING_INTERVAL < time) {
        sendPing(time);
    }
    // One ACK and one NACK per tick at most; what doesn't fit waits.
    for (auto acknowledgement : {receiveWindow_.nextAck(mtu_ - 5), receiveWindow_.nextNack(mtu_ - 5)}) {
        if (acknowledgement) {
            auto buffer = ByteBuffer::withCapacity(static_cast<uint32_t>(mtu_ - 4));
            acknowledgement->encode(buffer);
            sendPacket(std::move(buffer));
        }
    }
    // In the table's own order; what is resent here comes back under a new
    // number that this walk doesn't visit.
    for (int32_t number : resendTable_.numbers()) {
        const Datagram* sent = resendTable_.find(number);
        if (sent && sent->sendTime + RETRANSMISSION_TIMEOUT < Clock::currentTimeMillis() &&
            resendTable_.pay(*sent)) {
            resend(number, 0);
        }
    }
    sendQueue();
}

void Connection::addToQueue(EncapsulatedPacket frame, Priority priority) {
    frame.needACK = false;
    const Reliability kind = kindOf(frame);
    if (takesMessageIndex(kind)) {
        frame.messageIndex = ++messageIndex_;
        // RELIABLE_ORDERED exactly: its receipt-carrying twin takes no order index.
        if (kind.id == Reliability::RELIABLE_ORDERED.id) {
            if (frame.orderChannel < 0 || frame.orderChannel >= ORDER_CHANNELS) {
                fatalFault("order channel out of range");
            }
            frame.orderIndex = channelIndex_[static_cast<size_t>(frame.orderChannel)]++;
        }
    }
    if (frame.size() + DATAGRAM_HEADER_ALLOWANCE <= mtu_) {
        addEncapsulatedToQueue(std::move(frame), priority);
        return;
    }

    const int32_t maxSize = mtu_ - FRAGMENT_OVERHEAD;
    ByteBuffer& payload = *frame.buffer;
    const int32_t count = static_cast<int32_t>((payload.readableBytes() - 1) / static_cast<uint32_t>(maxSize) + 1);
    std::vector<ByteBuffer> slices;
    slices.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        uint32_t length = std::min(payload.readableBytes(), static_cast<uint32_t>(maxSize));
        slices.push_back(foundation::forced(payload.readSlice(length)));
    }

    ++splitId_;
    const int32_t setId = splitId_ % 65536;
    for (int32_t index = 0; index < count; ++index) {
        EncapsulatedPacket fragment = frameOf(kind, std::move(slices[static_cast<size_t>(index)]));
        fragment.split = true;
        fragment.splitCount = count;
        fragment.splitId = setId;
        fragment.splitIndex = index;
        fragment.messageIndex = ++messageIndex_;
        if (kind.id == Reliability::RELIABLE_ORDERED.id) {
            fragment.orderChannel = frame.orderChannel;
            fragment.orderIndex = frame.orderIndex;
        }
        // Fragments always leave at once, each in a datagram of its own.
        addEncapsulatedToQueue(std::move(fragment), Priority::IMMEDIATE);
    }
}

void Connection::addEncapsulatedToQueue(EncapsulatedPacket frame, Priority priority) {
    if (priority == Priority::NORMAL) {
        if (outgoingPacket_.length() + frame.size() > mtu_) {
            sendQueue();
        }
        outgoingPacket_.packets.push_back(std::move(frame));
        scheduleFlush();
        return;
    }

    // Takes the counter's value and then raises it, where sendQueue raises it
    // first: the two ways together leave gaps and repeats that peers expect.
    Datagram datagram;
    datagram.sequenceNumber = static_cast<uint32_t>(sendSequenceNumber_++);
    if (takesMessageIndex(kindOf(frame))) {
        frame.messageIndex = ++messageIndex_;
    }
    datagram.packets.push_back(std::move(frame));
    auto buffer = ByteBuffer::withCapacity(static_cast<uint32_t>(datagram.length()));
    datagram.encode(buffer);
    datagram.sendTime = Clock::currentTimeMillis();
    sendPacket(std::move(buffer));
    resendTable_.store(std::move(datagram));
}

void Connection::scheduleFlush() {
    if (flushScheduled_ || !loop_) {
        return;
    }
    flushScheduled_ = true;
    // Behind the work already queued on the loop, such as the rest of a
    // burst of the bridge's sends, so that those frames share datagrams.
    loop_->execute([self = shared_from_this()] {
        self->flushScheduled_ = false;
        if (!self->dropped_) {
            self->sendQueue();
        }
    });
}

void Connection::sendQueue(uint64_t nackTick) {
    if (outgoingPacket_.packets.empty()) {
        return;
    }
    outgoingPacket_.sequenceNumber = static_cast<uint32_t>(++sendSequenceNumber_);
    auto buffer = ByteBuffer::withCapacity(std::bit_ceil(static_cast<uint32_t>(outgoingPacket_.length())));
    outgoingPacket_.encode(buffer);
    sendPacket(std::move(buffer));
    outgoingPacket_.sendTime = Clock::currentTimeMillis();
    resendTable_.store(std::move(outgoingPacket_), nackTick);
    outgoingPacket_ = Datagram();
}

void Connection::resend(int32_t number, uint64_t nackTick) {
    Datagram kept = std::move(outgoingPacket_);
    outgoingPacket_ = *resendTable_.find(number);
    sendQueue(nackTick);  // under a new number, kept again under that one
    resendTable_.erase(number);
    outgoingPacket_ = std::move(kept);
}

void Connection::sendPacket(ByteBuffer buffer) {
    if (dropped_ || !listener_ || !listener_->channel) {
        return;
    }
    // A failed send is ignored: the datagram stays in the resend table and time sends it again.
    listener_->channel->send(foundation::AddressedEnvelope{address, std::move(buffer), std::nullopt});
}

void Connection::sendPing(int64_t time) {
    ConnectedPing ping;
    ping.clientTime = time;
    auto buffer = ByteBuffer::withCapacity(9);
    ping.encode(buffer);
    addEncapsulatedToQueue(frameOf(Reliability::RELIABLE, std::move(buffer)), Priority::IMMEDIATE);
    lastPing_ = time;
}

void Connection::close() {
    // On the wire 00 00 08 15: UNRELIABLE, 8 bits of payload, DisconnectNotification.
    const uint8_t disconnect[] = {DisconnectNotification().id};
    addToQueue(frameOf(Reliability::UNRELIABLE, ByteBuffer(std::span<const uint8_t>(disconnect))), Priority::IMMEDIATE);
}

void Connection::detachFromListener() { listener_.reset(); }

}  // namespace ferrylink::raknet
