#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/byte_buffer.h"
#include "foundation/event_loop.h"
#include "foundation/socket_address.h"
#include "raknet/packets/datagram.h"
#include "raknet/packets/encapsulated_packet.h"
#include "raknet/receive_window.h"
#include "raknet/reliability.h"
#include "raknet/reliable_window.h"
#include "raknet/resend_table.h"
#include "raknet/split_assembler.h"

namespace ferrylink::raknet {

class Listener;

enum class State : uint8_t { CONNECTING = 0, CONNECTED = 1, DISCONNECTING = 2, DISCONNECTED = 3 };

// The reliability engine of one peer. The Listener makes it at the peer's
// first OpenConnectionRequest1, feeds it every datagram that isn't an offline
// request and calls update() on each tick. Its parts: the receive window of
// sequence numbers, the reliable window that delivers frames in order, the
// split assembler and the resend table of what went out.
//
// Threads: `address` and `protocolVersion` never change and may be read from
// anywhere; sendBuffer(), sendBufferImmediate() and disconnect() may be called
// from any thread and carry their work to the loop of the Listener's channel,
// which owns the connection. Everything else runs on that loop.
//
// On purpose, as peers of this system expect it: delivery follows messageIndex
// only (order channels and sequence indices are read and ignored), a datagram
// overtaken by a later one is dropped, and sequence numbers and message
// indices on the way out have gaps.
//
// Bytes of the peer that can't be read, or that reach a limit, drop the peer
// (see disconnect()), never the process.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    static constexpr int64_t SILENCE_TIMEOUT = 4000;
    static constexpr int64_t PING_INTERVAL = 2000;
    static constexpr int64_t RETRANSMISSION_TIMEOUT = 2000;

    // Made with std::make_shared. The clocks of timeout and ping start now.
    Connection(std::shared_ptr<Listener> listener, int32_t mtu, foundation::SocketAddress address,
               int32_t protocolVersion);

    // For the bridge, from any thread: the payload goes out RELIABLE_ORDERED on
    // channel 0, queued to leave with what else is queued once the loop has
    // run the work in hand, or, immediate, in a datagram of its own at once.
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

    const foundation::SocketAddress address;
    const int32_t protocolVersion;

    // --- The Listener's side; loop thread ---------------------------------------------

    // One datagram that isn't 0x01, 0x05 or 0x07.
    void receive(foundation::ByteBuffer buffer);
    // The tick: timeout, own ping, one ACK and one NACK, resends by time,
    // then whatever is queued.
    void update(int64_t time);
    // Sends the peer the one frame that says it's over (DisconnectNotification).
    // Changes neither the state nor the Listener's table.
    void close();
    // Lets go of the Listener once this connection has left its table or the
    // Listener has closed, so neither keeps the other alive. Afterwards
    // nothing is sent any more.
    void detachFromListener();

    int32_t mtu() const { return mtu_; }
    void setMtu(int32_t mtu) { mtu_ = mtu; }
    State state() const { return state_; }
    // No data datagram has come yet: only offline requests.
    bool halfOpen() const { return halfOpen_; }
    bool attached() const { return listener_ != nullptr; }

private:
    friend class Listener;

    void queueSend(const foundation::ByteBuffer& buffer, Priority priority);
    // The policy point for this peer's bytes: whatever can't be read, or
    // reaches a limit, ends the connection here and nowhere else, with the one
    // line "Dropped <address>: <reason>".
    void drop(const std::string& reason);
    // Goodbye to the peer, out of the table, onCloseConnection once.
    void leave(const std::string& reason);
    void print(const std::string& line);

    // The way in.
    void handleAck(foundation::ByteBuffer& buffer);
    void handleNack(foundation::ByteBuffer& buffer);
    void handleDatagram(foundation::ByteBuffer& buffer);
    void handleEncapsulated(EncapsulatedPacket& frame);
    void dispatch(foundation::ByteBuffer& payload, bool framed);
    void handleConnectionRequest(foundation::ByteBuffer& payload);
    void handleNewIncomingConnection(foundation::ByteBuffer& payload, bool framed);
    void handleConnectedPing(foundation::ByteBuffer& payload);

    // The way out.
    // Numbers a frame and splits it when it doesn't fit one datagram.
    void addToQueue(EncapsulatedPacket frame, Priority priority);
    // Puts a frame into a datagram: the one being filled, or for IMMEDIATE a
    // new one that leaves at once.
    void addEncapsulatedToQueue(EncapsulatedPacket frame, Priority priority);
    // Sends `outgoingPacket_` under the next sequence number and keeps it for
    // resends; `nackTick` marks a resend for a NACK.
    void sendQueue(uint64_t nackTick = 0);
    // Sends the datagram kept under `number` again, under a new number.
    void resend(int32_t number, uint64_t nackTick);
    void sendPacket(foundation::ByteBuffer buffer);
    void sendPing(int64_t time);
    // Queued frames leave once the loop has run the work in hand, instead of
    // waiting for the tick.
    void scheduleFlush();

    std::shared_ptr<Listener> listener_;
    // The loop of the Listener's channel, which owns this connection: taken
    // at construction so that the bridge's calls never read the Listener from
    // another thread. Empty for a Listener that has no channel.
    const std::shared_ptr<foundation::EventLoop> loop_;
    int32_t mtu_;
    State state_ = State::CONNECTING;

    ReceiveWindow receiveWindow_;
    ReliableWindow reliableWindow_;
    SplitAssembler splitAssembler_;
    ResendTable resendTable_;

    Datagram outgoingPacket_;
    int32_t sendSequenceNumber_ = 0;
    int32_t messageIndex_ = -1;
    std::array<int32_t, 32> channelIndex_{};
    int32_t splitId_ = 0;
    int64_t lastUpdate_;
    int64_t lastPing_;
    // Counts ticks from 1, so that a NACK resends a datagram at most once in each.
    uint64_t tick_ = 1;

    bool halfOpen_ = true;
    bool flushScheduled_ = false;
    // Set once the connection has been dropped: it then handles and sends nothing.
    bool dropped_ = false;
    // Set by the Listener once a removal has begun, so that a drop doesn't
    // tell of the same end twice.
    bool leaving_ = false;
};

}  // namespace ferrylink::raknet
