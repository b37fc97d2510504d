// The way out of a Connection: numbering, splitting, datagrams, the tick.
#include "raknet/connection.h"

#include <bit>

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "raknet/listener.h"
#include "raknet/packets/acknowledge_packet.h"
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
    : listener(owner),
      mtu(mtu),
      address(std::move(address)),
      protocolVersion(protocolVersion),
      lastUpdate(Clock::currentTimeMillis()),
      lastPing(lastUpdate),
      loop_(owner && owner->channel ? owner->channel->eventLoop() : nullptr) {}

void Connection::sendBuffer(const ByteBuffer& buffer) { queueSend(buffer, Priority::NORMAL); }

void Connection::sendBufferImmediate(const ByteBuffer& buffer) { queueSend(buffer, Priority::IMMEDIATE); }

void Connection::disconnect(std::string reason) {
    if (loop_ && !loop_->inEventLoop()) {
        loop_->execute([self = shared_from_this(), reason = std::move(reason)] { self->leave(reason); });
        return;
    }
    leave(reason);
}

void Connection::drop(const std::string& reason) {
    if (!dropped_ && !leaving_ && listener) {
        listener->printer->print("Dropped " + address.description() + ": " + reason);
    }
    leave(reason);
}

void Connection::leave(const std::string& reason) {
    // Out of the table already, by any path: the listener of connections has heard of it.
    if (dropped_ || leaving_ || !listener) {
        return;
    }
    close();
    dropped_ = true;
    listener->dropConnection(shared_from_this(), reason);
}

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

void Connection::update(int64_t time) {
    if (dropped_) {
        return;
    }
    if (time - lastUpdate >= SILENCE_TIMEOUT) {
        if (listener) {
            listener->removeConnection(shared_from_this(), "timeout");
        }
        return;
    }
    // Also before the connected handshake has ended.
    if (lastPing + PING_INTERVAL < time) {
        sendPing(time);
    }
    // One ACK and one NACK per tick at most; what doesn't fit waits.
    if (!ackQueue.empty()) {
        AcknowledgePacket ack(ACK::ID, ackQueue, mtu - 5);
        auto buffer = ByteBuffer::withCapacity(static_cast<uint32_t>(mtu - 4));
        ack.encode(buffer);
        sendPacket(std::move(buffer));
    }
    if (!nackQueue.empty()) {
        AcknowledgePacket nack(NACK::ID, nackQueue, mtu - 5);
        auto buffer = ByteBuffer::withCapacity(static_cast<uint32_t>(mtu - 4));
        nack.encode(buffer);
        sendPacket(std::move(buffer));
    }
    // A snapshot of the numbers, in the table's own order: what is resent
    // here comes back under a new number that this walk doesn't visit.
    std::vector<int32_t> numbers;
    numbers.reserve(sendDatagrams.size());
    for (const auto& entry : sendDatagrams) {
        numbers.push_back(entry.first);
    }
    for (int32_t number : numbers) {
        auto found = sendDatagrams.find(number);
        if (found == sendDatagrams.end()) {
            continue;
        }
        if (found->second.sendTime + RETRANSMISSION_TIMEOUT < Clock::currentTimeMillis()) {
            Datagram kept = std::move(outgoingPacket);
            outgoingPacket = found->second;
            sendQueue();
            sendDatagrams.erase(number);
            outgoingPacket = std::move(kept);
        }
    }
    sendQueue();
}

void Connection::addToQueue(EncapsulatedPacket frame, Priority priority) {
    frame.needACK = false;
    const Reliability kind = kindOf(frame);
    if (takesMessageIndex(kind)) {
        frame.messageIndex = ++messageIndex;
        // RELIABLE_ORDERED exactly: its receipt-carrying twin takes no order index.
        if (kind.id == Reliability::RELIABLE_ORDERED.id) {
            if (frame.orderChannel < 0 || frame.orderChannel >= ORDER_CHANNELS) {
                fatalFault("order channel out of range");
            }
            frame.orderIndex = channelIndex[static_cast<size_t>(frame.orderChannel)]++;
        }
    }
    if (frame.size() + DATAGRAM_HEADER_ALLOWANCE <= mtu) {
        addEncapsulatedToQueue(std::move(frame), priority);
        return;
    }

    const int32_t maxSize = mtu - FRAGMENT_OVERHEAD;
    ByteBuffer& payload = *frame.buffer;
    const int32_t count = static_cast<int32_t>((payload.readableBytes() - 1) / static_cast<uint32_t>(maxSize) + 1);
    std::vector<ByteBuffer> slices;
    slices.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        uint32_t length = std::min(payload.readableBytes(), static_cast<uint32_t>(maxSize));
        slices.push_back(foundation::forced(payload.readSlice(length)));
    }

    ++splitId;
    const int32_t setId = splitId % 65536;
    for (int32_t index = 0; index < count; ++index) {
        EncapsulatedPacket fragment = frameOf(kind, std::move(slices[static_cast<size_t>(index)]));
        fragment.split = true;
        fragment.splitCount = count;
        fragment.splitId = setId;
        fragment.splitIndex = index;
        fragment.messageIndex = ++messageIndex;
        if (kind.id == Reliability::RELIABLE_ORDERED.id) {
            fragment.orderChannel = frame.orderChannel;
            fragment.orderIndex = frame.orderIndex;
        }
        // Fragments always leave at once, each in a datagram of its own.
        addEncapsulatedToQueue(std::move(fragment), Priority::IMMEDIATE);
    }
}

void Connection::addEncapsulatedToQueue(EncapsulatedPacket frame, Priority priority) {
    if (frame.needACK && frame.messageIndex) {
        needACK[frame.ackId] = frame.messageIndex;
    }
    if (priority == Priority::NORMAL) {
        if (outgoingPacket.length() + frame.size() > mtu) {
            sendQueue();
        }
        outgoingPacket.packets.push_back(std::move(frame));
        return;
    }

    // Takes the counter's value and then raises it, where sendQueue raises it
    // first: the two ways together leave gaps and repeats that peers expect.
    Datagram datagram;
    datagram.sequenceNumber = static_cast<uint32_t>(sendSequenceNumber++);
    if (takesMessageIndex(kindOf(frame))) {
        frame.messageIndex = ++messageIndex;
    }
    datagram.packets.push_back(std::move(frame));
    auto buffer = ByteBuffer::withCapacity(static_cast<uint32_t>(datagram.length()));
    datagram.encode(buffer);
    datagram.sendTime = Clock::currentTimeMillis();
    sendPacket(std::move(buffer));
    sendDatagrams.insert_or_assign(static_cast<int32_t>(datagram.sequenceNumber), std::move(datagram));
}

void Connection::sendQueue() {
    if (outgoingPacket.packets.empty()) {
        return;
    }
    outgoingPacket.sequenceNumber = static_cast<uint32_t>(++sendSequenceNumber);
    auto buffer = ByteBuffer::withCapacity(std::bit_ceil(static_cast<uint32_t>(outgoingPacket.length())));
    outgoingPacket.encode(buffer);
    sendPacket(std::move(buffer));
    outgoingPacket.sendTime = Clock::currentTimeMillis();
    auto number = static_cast<int32_t>(outgoingPacket.sequenceNumber);
    sendDatagrams.insert_or_assign(number, std::move(outgoingPacket));
    outgoingPacket = Datagram();
}

void Connection::sendPacket(ByteBuffer buffer) {
    if (dropped_ || !listener || !listener->channel) {
        return;
    }
    // A failed write is ignored: the datagram stays in sendDatagrams and time resends it.
    listener->channel->writeAndFlush(foundation::AddressedEnvelope{address, std::move(buffer), std::nullopt});
}

void Connection::sendPing(int64_t time) {
    ConnectedPing ping;
    ping.clientTime = time;
    auto buffer = ByteBuffer::withCapacity(9);
    ping.encode(buffer);
    addEncapsulatedToQueue(frameOf(Reliability::RELIABLE, std::move(buffer)), Priority::IMMEDIATE);
    lastPing = time;
}

void Connection::close() {
    // On the wire 00 00 08 15: UNRELIABLE, 8 bits of payload, DisconnectNotification.
    const uint8_t disconnect[] = {DisconnectNotification().id};
    addToQueue(frameOf(Reliability::UNRELIABLE, ByteBuffer(std::span<const uint8_t>(disconnect))), Priority::IMMEDIATE);
}

void Connection::detachFromListener() { listener.reset(); }

}  // namespace ferrylink::raknet
