// The way in of a Connection: acknowledgements, the sequence window, the
// reliable window, reassembly, and the dispatch of complete payloads with the
// connected handshake.
#include <algorithm>
#include <string>

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "raknet/connection.h"
#include "raknet/listener.h"
#include "raknet/packets/acknowledge_packet.h"
#include "raknet/packets/connected_packets.h"
#include "raknet/packets/flags.h"
#include "raknet/packets/offline_packets.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::Clock;
using foundation::fatalFault;

namespace {

constexpr uint8_t GAME_PAYLOAD_FIRST_ID = 0x80;
constexpr int32_t FILLER_ADDRESSES = 20;
constexpr uint32_t ACCEPTED_CAPACITY_IPV4 = 166;
constexpr uint32_t ACCEPTED_CAPACITY_IPV6 = 628;

template <typename T, typename V>
bool contains(const std::vector<T>& values, V value) {
    return std::find(values.begin(), values.end(), static_cast<T>(value)) != values.end();
}

// Every number of an entry, in order; the decoder has refused entries that run backwards.
template <typename Visit>
void forEachNumber(const AcknowledgePacket& packet, Visit visit) {
    for (const auto& entry : packet.packets) {
        for (uint64_t number = entry.start; number <= entry.end; ++number) {
            visit(static_cast<int32_t>(number));
        }
    }
}

}  // namespace

void Connection::receive(ByteBuffer buffer) {
    auto first = buffer.getInteger<uint8_t>(buffer.readerIndex());
    if (dropped_ || !first) {
        return;
    }
    const uint8_t header = *first;
    if ((header & Flags::VALID) == 0) {
        // Some peers send these two bare, without a frame around them.
        if (state == State::CONNECTING) {
            if (header == NewIncomingConnection().id) {
                handleNewIncomingConnection(buffer, false);
            } else if (header == ConnectionRequest().id) {
                handleConnectionRequest(buffer);
            }
        }
        return;
    }
    if (header & Flags::ACK) {
        handleAck(buffer);
    } else if (header & Flags::NACK) {
        handleNack(buffer);
    } else {
        handleDatagram(buffer);
    }
}

void Connection::handleAck(ByteBuffer& buffer) {
    ACK ack;
    if (auto decoded = ack.decode(buffer); !decoded) {
        drop(decoded.error());
        return;
    }
    forEachNumber(ack, [this](int32_t number) {
        auto found = sendDatagrams.find(number);
        if (found == sendDatagrams.end()) {
            return;
        }
        for (const auto& frame : found->second.packets) {
            if (frame.needACK && frame.messageIndex) {
                needACK.erase(frame.ackId);
            }
        }
        sendDatagrams.erase(found);
    });
}

void Connection::handleNack(ByteBuffer& buffer) {
    NACK nack;
    if (auto decoded = nack.decode(buffer); !decoded) {
        drop(decoded.error());
        return;
    }
    Datagram kept = std::move(outgoingPacket);
    forEachNumber(nack, [this](int32_t number) {
        auto found = sendDatagrams.find(number);
        if (found == sendDatagrams.end()) {
            return;
        }
        outgoingPacket = found->second;
        sendQueue();  // under a new number, kept again under that one
        sendDatagrams.erase(number);
    });
    outgoingPacket = std::move(kept);
}

void Connection::handleDatagram(ByteBuffer& buffer) {
    lastUpdate = Clock::currentTimeMillis();
    Datagram datagram;
    if (auto decoded = datagram.decode(buffer); !decoded) {
        drop(decoded.error());
        return;
    }
    const auto seq = static_cast<int32_t>(datagram.sequenceNumber);

    // The window slides with the newest number, so a datagram that was
    // overtaken falls under its start and is dropped, even while its number
    // waits in nackQueue: the peer resends its content under a new number.
    if (seq < windowStart || seq > windowEnd) {
        return;
    }
    if (contains(recievedWindow, seq)) {
        return;
    }
    const int32_t diff = seq - lastSequenceNumber;
    auto nacked = std::find(nackQueue.begin(), nackQueue.end(), static_cast<uint32_t>(seq));
    if (nacked != nackQueue.end()) {
        nackQueue.erase(nacked);
    }
    ackQueue.push_back(static_cast<uint32_t>(seq));
    recievedWindow.push_back(seq);
    if (diff != 1) {
        for (int32_t missing = lastSequenceNumber + 1; missing < seq; ++missing) {
            if (!contains(recievedWindow, missing)) {
                nackQueue.push_back(static_cast<uint32_t>(missing));
            }
        }
    }
    lastSequenceNumber = seq;
    windowStart += diff;
    windowEnd += diff;

    for (auto& frame : datagram.packets) {
        if (dropped_) {
            return;
        }
        handlePacket(std::move(frame));
    }
}

void Connection::handlePacket(EncapsulatedPacket frame) {
    if (!frame.messageIndex) {
        handleEncapsulated(std::move(frame));
        return;
    }
    const int32_t index = *frame.messageIndex;
    if (index < reliableWindowStart || index > reliableWindowEnd) {
        return;  // how a duplicate of a reliable frame goes away
    }
    if (index - lastReliableIndex != 1) {
        reliableWindow.insert_or_assign(index, std::move(frame));
        return;
    }
    ++lastReliableIndex;
    ++reliableWindowStart;
    ++reliableWindowEnd;
    handleEncapsulated(std::move(frame));

    if (reliableWindow.empty()) {
        return;
    }
    std::vector<std::pair<int32_t, EncapsulatedPacket>> sorted(std::make_move_iterator(reliableWindow.begin()),
                                                                std::make_move_iterator(reliableWindow.end()));
    std::sort(sorted.begin(), sorted.end(), [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
    std::unordered_map<int32_t, EncapsulatedPacket> rebuilt;
    for (auto& entry : sorted) {
        rebuilt.insert(std::move(entry));
    }
    reliableWindow = std::move(rebuilt);

    // Walked in the hash table's own order, which isn't ascending: the walk
    // stops at the first key that isn't next in line, and frames behind it wait
    // for the next in-order frame to start a new walk. Peers of this system
    // live with exactly this reorder buffer.
    for (auto entry = reliableWindow.begin(); entry != reliableWindow.end();) {
        if (entry->first - lastReliableIndex != 1) {
            break;
        }
        ++lastReliableIndex;
        ++reliableWindowStart;
        ++reliableWindowEnd;
        EncapsulatedPacket next = std::move(entry->second);
        entry = reliableWindow.erase(entry);
        handleEncapsulated(std::move(next));
    }
}

void Connection::handleEncapsulated(EncapsulatedPacket frame) {
    if (frame.split) {
        handleSplit(std::move(frame));
        return;
    }
    if (frame.buffer) {
        dispatch(*frame.buffer, true);
    }
}

void Connection::handleSplit(EncapsulatedPacket frame) {
    const int32_t setId = frame.splitId;
    const int32_t count = frame.splitCount;
    auto& fragments = splitPacket[setId];
    // A repeated index replaces the earlier fragment.
    fragments.insert_or_assign(frame.splitIndex, std::move(frame));
    // No limits: the count is the last fragment's word, indices aren't checked
    // against it, and incomplete sets live as long as the connection.
    if (count < 0 || fragments.size() != static_cast<size_t>(count)) {
        return;
    }

    uint32_t total = 0;
    std::vector<std::pair<int32_t, const ByteBuffer*>> ordered;
    ordered.reserve(fragments.size());
    for (const auto& [index, fragment] : fragments) {
        const ByteBuffer* bytes = fragment.buffer ? &*fragment.buffer : nullptr;
        total += bytes ? bytes->readableBytes() : 0;
        ordered.emplace_back(index, bytes);
    }
    std::sort(ordered.begin(), ordered.end(), [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
    auto whole = ByteBuffer::withCapacity(total);
    for (const auto& [index, bytes] : ordered) {
        if (bytes) {
            whole.writeBytes(bytes->readableView());
        }
    }
    splitPacket.erase(setId);

    EncapsulatedPacket assembled;
    assembled.buffer = std::move(whole);
    handlePacket(std::move(assembled));
}

void Connection::dispatch(ByteBuffer& payload, bool framed) {
    if (dropped_) {
        return;  // what stood behind the fault in the same datagram
    }
    auto first = payload.getInteger<uint8_t>(payload.readerIndex());
    if (!first) {
        drop("empty payload");
        return;
    }
    const uint8_t id = *first;
    auto print = [this](const std::string& line) {
        if (listener && listener->printer) {
            listener->printer->print(line);
        }
    };
    print("packet: " + std::to_string(id));

    if (id >= GAME_PAYLOAD_FIRST_ID) {
        if (state != State::CONNECTED) {
            return;
        }
        print("con: " + std::to_string(id));
        if (listener && listener->connectionListener) {
            listener->connectionListener->onEncapsulated(payload, address);
        }
        return;
    }
    if (state == State::CONNECTING) {
        if (id == NewIncomingConnection().id) {
            handleNewIncomingConnection(payload, framed);
        } else if (id == ConnectionRequest().id) {
            handleConnectionRequest(payload);
        }
        return;
    }
    if (id == ConnectedPing().id) {
        handleConnectedPing(payload);
    } else if (id == DisconnectNotification().id) {
        if (listener) {
            listener->removeConnection(shared_from_this(), "client disconnect");
        }
    }
}

void Connection::handleConnectionRequest(ByteBuffer& payload) {
    ConnectionRequest request;
    if (auto decoded = request.decode(payload); !decoded) {
        drop(decoded.error());
        return;
    }
    ConnectionRequestAccepted accepted;
    accepted.address = address;
    accepted.timestamp = request.timestamp;
    accepted.nExtraAdresses = FILLER_ADDRESSES;
    auto buffer = ByteBuffer::withCapacity(address.kind() == foundation::SocketAddress::Kind::v6
                                               ? ACCEPTED_CAPACITY_IPV6
                                               : ACCEPTED_CAPACITY_IPV4);
    accepted.encode(buffer);
    EncapsulatedPacket frame;
    frame.reliability = Reliability::RELIABLE;
    frame.buffer = std::move(buffer);
    // `state` stays: a repeated request gets the same answer with the current time.
    addEncapsulatedToQueue(std::move(frame), Priority::IMMEDIATE);
}

void Connection::handleNewIncomingConnection(ByteBuffer& payload, bool framed) {
    NewIncomingConnection packet;
    if (auto decoded = packet.decode(payload); !decoded) {
        drop(decoded.error());
        return;
    }
    const auto port = packet.address->port();
    if (framed) {
        // The peer must name the port this server is bound on; the address text is of no interest.
        std::optional<foundation::SocketAddress> local;
        if (listener && listener->channel) {
            local = listener->channel->localAddress();
        }
        if (!local || local->port() != port) {
            return;
        }
    } else if (address.port() != port) {
        // The bare form is checked against the peer's own port instead.
        return;
    }
    state = State::CONNECTED;
    if (listener && listener->connectionListener) {
        listener->connectionListener->onOpenConnection(shared_from_this());
    } else if (!framed) {
        fatalFault("connection opened without a listener");
    }
}

void Connection::handleConnectedPing(ByteBuffer& payload) {
    ConnectedPing ping;
    if (auto decoded = ping.decode(payload); !decoded) {
        drop(decoded.error());
        return;
    }
    ConnectedPong pong;
    pong.clientTime = ping.clientTime;
    pong.serverTime = Clock::currentTimeMillis();
    auto buffer = ByteBuffer::withCapacity(17);
    pong.encode(buffer);
    EncapsulatedPacket frame;
    frame.reliability = Reliability::RELIABLE;
    frame.buffer = std::move(buffer);
    addEncapsulatedToQueue(std::move(frame), Priority::IMMEDIATE);
}

}  // namespace ferrylink::raknet
