#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "foundation/socket_address.h"

namespace ferrylink::sim {

// One frame as it stands on the wire. `reliability` is the kind's id, 0 to 7:
// 0 UNRELIABLE, 2 RELIABLE, 3 RELIABLE_ORDERED, 4 RELIABLE_SEQUENCED...
struct LinkFrame {
    int reliability = 3;
    std::optional<uint32_t> messageIndex;   // written when the kind is reliable
    std::optional<uint32_t> sequenceIndex;  // written when the kind is sequenced
    uint32_t orderIndex = 0;                // written when ordered or sequenced
    uint8_t orderChannel = 0;
    bool split = false;
    int32_t splitCount = 0;
    uint16_t splitId = 0;
    int32_t splitIndex = 0;
    std::vector<uint8_t> payload;
};

// RELIABLE_ORDERED and RELIABLE_ORDERED_WITH_ACK_RECEIPT: delivered by order index.
bool isOrdered(int reliability);

// A data datagram: first byte (0x80 to 0x8F for data), sequence number, frames.
struct LinkDatagram {
    uint8_t header = 0x84;
    uint32_t sequenceNumber = 0;
    std::vector<LinkFrame> frames;
};

// An ACK (0xC0) or NACK (0xA0) as ranges of sequence numbers, ends inclusive.
struct LinkAcknowledgement {
    bool negative = false;
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    // Every number the ranges cover, in order.
    std::vector<uint32_t> numbers() const;
};

// The wire forms, written and read apart from the bridge's own RakNet.
std::vector<uint8_t> encodeDatagram(const LinkDatagram& datagram);
std::optional<LinkDatagram> parseDatagram(std::span<const uint8_t> bytes);
std::vector<uint8_t> encodeAcknowledgement(const LinkAcknowledgement& acknowledgement);
std::optional<LinkAcknowledgement> parseAcknowledgement(std::span<const uint8_t> bytes);
// The 7-byte IPv4 or 29-byte IPv6 address form.
std::vector<uint8_t> encodeAddress(const foundation::SocketAddress& address);

// Turns the frames of data datagrams into whole ones: a reliable frame seen
// before (same messageIndex) is dropped, so a retransmitted datagram doesn't
// deliver twice, and fragments are joined by splitId in splitIndex order. The
// whole frame keeps the reliability and order index of its fragments.
class FrameJoiner {
public:
    std::optional<LinkFrame> take(LinkFrame frame);

private:
    std::set<uint32_t> seenMessageIndices_;
    std::unordered_map<uint16_t, std::map<int32_t, std::vector<uint8_t>>> splits_;
};

// The console's end of RakNet: a plain UDP socket on loopback and the frames,
// datagrams and handshake a console sends, numbered from its own counters.
//
// While reading it takes every datagram that has come, ACKs their data
// datagrams together in one ACK of ranges, and files offline replies and data datagrams in backlogs of their own, from
// which nextOffline() and nextDatagram() take them in arrival order.
//
// All waits are bounded by a timeout and give nothing when it runs out. Not
// thread-safe: one thread drives a link.
class ConsoleLink {
public:
    static constexpr std::chrono::milliseconds DEFAULT_TIMEOUT{5000};
    static constexpr int64_t DEFAULT_CLIENT_ID = 0x0102030405060708;

    // Binds 127.0.0.1:0 or [::1]:0, after the family of `server`.
    explicit ConsoleLink(foundation::SocketAddress server);
    virtual ~ConsoleLink();
    ConsoleLink(const ConsoleLink&) = delete;
    ConsoleLink& operator=(const ConsoleLink&) = delete;

    foundation::SocketAddress localAddress() const;
    uint16_t localPort() const;

    void sendRaw(std::span<const uint8_t> bytes);

    // --- Offline -------------------------------------------------------------
    void sendUnconnectedPing(int64_t clientTime, int64_t clientId = DEFAULT_CLIENT_ID);
    // The next datagram with first byte `id` that isn't a data datagram, ACK or NACK.
    std::optional<std::vector<uint8_t>> nextOffline(uint8_t id, std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);

    // Request 1 (of `mtu` bytes), request 2, ConnectionRequest, waits for
    // ConnectionRequestAccepted, then NewIncomingConnection. True when the
    // server accepted. `serverId()` is known afterwards. The datagram of the
    // acceptance stays in the backlog of nextDatagram().
    bool connect(uint16_t mtu = 1400, uint8_t protocolVersion = 11);
    int64_t serverId() const { return serverId_; }

    // --- Frames out ------------------------------------------------------------
    // A frame of `reliability` around `payload`, numbered from the link's own
    // counters: the next messageIndex when reliable, the next orderIndex of
    // channel 0 when ordered.
    LinkFrame frame(std::vector<uint8_t> payload, int reliability = 3);
    // The fragments of one split set, `fragmentSize` bytes each (the last takes
    // the rest), numbered as above: one orderIndex for the set, one
    // messageIndex per fragment, a fresh splitId.
    std::vector<LinkFrame> fragments(const std::vector<uint8_t>& payload, size_t fragmentSize, int reliability = 3);
    // Sends the frames in one datagram under the next sequence number and
    // returns the number used.
    uint32_t sendFrames(const std::vector<LinkFrame>& frames);
    // One payload, RELIABLE_ORDERED; split into datagrams of their own when
    // it is longer than `fragmentSize`.
    void sendPayload(const std::vector<uint8_t>& payload, size_t fragmentSize = 1000);
    void sendDisconnect();

    // --- Reading -------------------------------------------------------------------
    // Data datagrams as they came, before deduplication and reassembly.
    std::optional<LinkDatagram> nextDatagram(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);

    // Off unless set, so that every datagram goes out once. Set, the link
    // copes with loss as a console's RakNet does: a data datagram that isn't
    // acknowledged within this time goes out again, same frames under the next
    // sequence number, and connect() repeats an offline request whose reply
    // hasn't come. For load generators, where a busy receiver drops datagrams.
    std::optional<std::chrono::milliseconds> resendAfter;

protected:
    // The requests and control payloads of the handshake, with the fields a
    // console fills in as parameters.
    // A request 1 of exactly `datagramLength` bytes (18 or more), zero padded.
    void sendOpenConnectionRequest1(uint8_t protocolVersion, size_t datagramLength);
    // Request 2 naming the server's address; `mtu` is the 16-bit field.
    void sendOpenConnectionRequest2(uint16_t mtu, int64_t clientId = DEFAULT_CLIENT_ID);
    // Framed RELIABLE_ORDERED.
    void sendConnectionRequest(int64_t timestamp, int64_t clientId = DEFAULT_CLIENT_ID);
    // NewIncomingConnection naming `port` (the server's by default) with
    // `extraAddresses` filler addresses.
    void sendNewIncomingConnection(std::optional<uint16_t> port = std::nullopt, int extraAddresses = 20);
    // Like sendFrames(), under `sequenceNumber`; later sends go on above it.
    uint32_t sendFramesAs(uint32_t sequenceNumber, const std::vector<LinkFrame>& frames);

    // Seen by every datagram read, before it is filed: all of its bytes, and
    // then, parsed, an ACK or NACK, or a data datagram.
    virtual void onRead(std::span<const uint8_t> /*bytes*/) {}
    virtual void onAcknowledgement(const LinkAcknowledgement& /*acknowledgement*/) {}
    virtual void onDatagram(const LinkDatagram& /*datagram*/) {}

    // Reads one datagram into the backlogs; false when the timeout ran out.
    bool pump(std::chrono::milliseconds timeout);
    // Pumps until `backlog` holds something, then takes its front.
    template <typename T>
    std::optional<T> take(std::deque<T>& backlog, std::chrono::milliseconds timeout);

    // Acknowledge every data datagram read.
    bool autoAck = true;

private:
    static constexpr size_t RECEIVE_BUFFER_SIZE = 65536;
    static constexpr size_t MAX_READ_AT_ONCE = 64;

    void file(std::vector<uint8_t> bytes);
    // One ACK for the data datagrams read since the last, when there were any.
    void sendPendingAcks();
    // Sends, then waits for the offline reply `id`, repeating the send after
    // `resendAfter` when that is set.
    std::optional<std::vector<uint8_t>> askOffline(uint8_t id, const std::function<void()>& send);
    bool accepted() const;
    void resendOverdue();

    int fd_ = -1;
    foundation::SocketAddress server_;
    int64_t serverId_ = 0;

    uint32_t nextSequenceNumber_ = 0;
    uint32_t nextMessageIndex_ = 0;
    uint32_t nextOrderIndex_ = 0;
    uint16_t nextSplitId_ = 0;

    std::unique_ptr<uint8_t[]> receiveBuffer_ = std::make_unique_for_overwrite<uint8_t[]>(RECEIVE_BUFFER_SIZE);
    std::vector<uint32_t> pendingAcks_;
    std::deque<std::vector<uint8_t>> offline_;
    std::deque<LinkDatagram> datagrams_;
    // Sent data datagrams waiting for their ACK, by sequence number (only
    // with `resendAfter`).
    struct Unacknowledged {
        std::vector<LinkFrame> frames;
        std::chrono::steady_clock::time_point sentAt;
    };
    std::map<uint32_t, Unacknowledged> unacknowledged_;
};

template <typename T>
std::optional<T> ConsoleLink::take(std::deque<T>& backlog, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (backlog.empty()) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !pump(left)) {
            return std::nullopt;
        }
    }
    T next = std::move(backlog.front());
    backlog.pop_front();
    return next;
}

}  // namespace ferrylink::sim
