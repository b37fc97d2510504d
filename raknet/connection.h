#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "foundation/byte_buffer.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"
#include "raknet/packets/datagram.h"
#include "raknet/packets/encapsulated_packet.h"
#include "raknet/reliability.h"

namespace ferrylink::raknet {

class Listener;

enum class State : uint8_t { CONNECTING = 0, CONNECTED = 1, DISCONNECTING = 2, DISCONNECTED = 3 };

// The reliability engine of one peer. The Listener makes it at the peer's
// first OpenConnectionRequest1, feeds it every datagram that isn't an offline
// request and calls update() on each tick.
//
// Threads: `address` and `protocolVersion` never change and may be read from
// anywhere; sendBuffer() and sendBufferImmediate() may be called from any
// thread. Everything else belongs to the event loop's thread.
//
// On purpose, as peers of this system expect it: delivery follows messageIndex
// only (order channels and sequence indices are read and ignored), a datagram
// overtaken by a later one is dropped, and sequence numbers and message
// indices on the way out have gaps.
//
// Bytes of the peer that can't be read drop the peer (see disconnect()), never
// the process.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    static constexpr int64_t SILENCE_TIMEOUT = 4000;
    static constexpr int64_t PING_INTERVAL = 2000;
    static constexpr int64_t RETRANSMISSION_TIMEOUT = 2000;

    // Made with std::make_shared. The clocks of timeout and ping start now.
    Connection(std::shared_ptr<Listener> listener, int32_t mtu, foundation::SocketAddress address,
               int32_t protocolVersion);

    // For the bridge, from any thread: the payload goes out RELIABLE_ORDERED on
    // channel 0, queued for the next tick or, immediate, in a datagram of its own.
    void sendBuffer(const foundation::ByteBuffer& buffer);
    void sendBufferImmediate(const foundation::ByteBuffer& buffer);

    // For the bridge, from any thread: ends this peer's connection. On the
    // connection's own loop it sends DisconnectNotification, leaves the
    // Listener's table, and the ConnectionListener hears
    // onCloseConnection(address, reason) exactly once; nothing is sent
    // afterwards. The transport prints nothing: the caller says why in its own
    // line. Does nothing when the connection has been removed or dropped
    // already (a timeout, the peer's own goodbye, an earlier call).
    void disconnect(std::string reason);

    // The tick: timeout, own ping, one ACK and one NACK, retransmission by
    // time, then whatever is queued.
    void update(int64_t time);
    // One datagram that isn't 0x01, 0x05 or 0x07.
    void receive(foundation::ByteBuffer buffer);
    void handleAck(foundation::ByteBuffer& buffer);
    void handleNack(foundation::ByteBuffer& buffer);
    void handleDatagram(foundation::ByteBuffer& buffer);
    void handlePacket(EncapsulatedPacket frame);
    void handleEncapsulated(EncapsulatedPacket frame);
    // Numbers a frame and splits it when it doesn't fit one datagram.
    void addToQueue(EncapsulatedPacket frame, Priority priority);
    void sendPing(int64_t time);
    // Puts a frame into a datagram: the one being filled, or for IMMEDIATE a
    // new one that leaves at once.
    void addEncapsulatedToQueue(EncapsulatedPacket frame, Priority priority);
    void handleSplit(EncapsulatedPacket frame);
    // Sends `outgoingPacket` under the next sequence number and keeps it for
    // retransmission.
    void sendQueue();
    void sendPacket(foundation::ByteBuffer buffer);
    // Sends the peer the one frame that says it's over (DisconnectNotification).
    // Changes neither `state` nor the Listener's table.
    void close();

    // Lets go of the Listener once this connection has left its table or the
    // Listener has closed, so neither keeps the other alive. Afterwards
    // nothing is sent any more. Loop thread.
    void detachFromListener();

    // What the system documents as the connection's fields. Loop thread only,
    // apart from the two constants.
    std::shared_ptr<Listener> listener;
    int32_t mtu;
    const foundation::SocketAddress address;
    const int32_t protocolVersion;
    State state = State::CONNECTING;
    std::vector<uint32_t> nackQueue;
    std::vector<uint32_t> ackQueue;
    // Walked in the table's own iteration order on retransmission.
    std::unordered_map<int32_t, Datagram> sendDatagrams;
    Datagram outgoingPacket;
    std::unordered_map<int32_t, std::unordered_map<int32_t, EncapsulatedPacket>> splitPacket;
    int32_t windowStart = -1;
    int32_t windowEnd = 2048;
    int32_t reliableWindowStart = 0;
    int32_t reliableWindowEnd = 2048;
    // Walked in the table's own iteration order, which is not ascending: a walk
    // may stop before frames that are next in line.
    std::unordered_map<int32_t, EncapsulatedPacket> reliableWindow;
    int32_t lastReliableIndex = -1;
    // Every sequence number accepted so far; never cut.
    std::vector<int32_t> recievedWindow;
    int32_t lastSequenceNumber = -1;
    int32_t sendSequenceNumber = 0;
    int32_t messageIndex = -1;
    std::array<int32_t, 32> channelIndex{};
    std::unordered_map<int32_t, std::optional<int32_t>> needACK;
    int32_t splitId = 0;
    int64_t lastUpdate;
    int64_t lastPing;

private:
    // The policy point for this peer's bytes: whatever can't be read, or
    // reaches a limit, ends the connection here and nowhere else, with the one
    // line "Dropped <address>: <reason>". Loop thread.
    void drop(const std::string& reason);
    // Goodbye to the peer, out of the table, onCloseConnection once. Loop thread.
    void leave(const std::string& reason);
    void queueSend(const foundation::ByteBuffer& buffer, Priority priority);
    void dispatch(foundation::ByteBuffer& payload, bool framed);
    void handleConnectionRequest(foundation::ByteBuffer& payload);
    void handleNewIncomingConnection(foundation::ByteBuffer& payload, bool framed);
    void handleConnectedPing(foundation::ByteBuffer& payload);

    // The loop of the Listener's channel, which owns this connection: taken
    // at construction so that the bridge's calls never read the Listener from
    // another thread. Empty for a Listener that has no channel.
    const std::shared_ptr<foundation::EventLoop> loop_;
    // Set once the connection has been dropped: it then handles and sends nothing. Loop thread.
    bool dropped_ = false;
    // Set by the Listener once a removal has begun, so that a drop doesn't
    // tell of the same end twice. Loop thread.
    bool leaving_ = false;
    friend class Listener;
};

}  // namespace ferrylink::raknet
