#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "foundation/socket_address.h"

namespace ferrylink::testing {

// One frame as it stands on the wire. `reliability` is the kind's id, 0 to 7:
// 0 UNRELIABLE, 2 RELIABLE, 3 RELIABLE_ORDERED, 4 RELIABLE_SEQUENCED...
struct PeerFrame {
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

// A data datagram: first byte (0x80 to 0x8F for data), sequence number, frames.
struct PeerDatagram {
    uint8_t header = 0x84;
    uint32_t sequenceNumber = 0;
    std::vector<PeerFrame> frames;
};

// An ACK (0xC0) or NACK (0xA0) as ranges of sequence numbers, ends inclusive.
struct PeerAcknowledgement {
    bool negative = false;
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    // Every number the ranges cover, in order.
    std::vector<uint32_t> numbers() const;
};

// A RakNet client made of a plain UDP socket and hand-written bytes, for
// driving a Listener over loopback. It writes and parses every form itself, so
// it doesn't share a line of codec with the code under test.
//
// What it does on its own while reading:
// - data datagrams are ACKed at once, one record per datagram (turn off with `autoAck`);
// - reliable frames seen before (same messageIndex) are dropped, so a
//   retransmitted datagram doesn't deliver twice;
// - fragments are reassembled by splitId in splitIndex order;
// - complete payloads, offline replies, ACKs and NACKs each go into their own
//   backlog, from which the next...() calls take them in arrival order.
//
// All waits are bounded by a timeout and give nothing when it runs out; none
// of them asserts anything about speed. Not thread-safe: one test thread.
class RakNetPeer {
public:
    static constexpr std::chrono::milliseconds DEFAULT_TIMEOUT{5000};
    static constexpr int64_t DEFAULT_CLIENT_ID = 0x0102030405060708;

    // Binds 127.0.0.1:0 or [::1]:0, after the family of `server`.
    explicit RakNetPeer(foundation::SocketAddress server);
    ~RakNetPeer();
    RakNetPeer(const RakNetPeer&) = delete;
    RakNetPeer& operator=(const RakNetPeer&) = delete;

    const foundation::SocketAddress& server() const { return server_; }
    foundation::SocketAddress localAddress() const;
    uint16_t localPort() const;

    // --- Raw datagrams -----------------------------------------------------
    void sendRaw(std::span<const uint8_t> bytes);
    // Every datagram read is also kept in a log of its own: this takes the
    // next one of them, whatever it is, without regard to the other backlogs.
    std::optional<std::vector<uint8_t>> receiveRaw(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);

    // --- Offline -----------------------------------------------------------
    void sendUnconnectedPing(int64_t clientTime, int64_t clientId = DEFAULT_CLIENT_ID);
    // A request 1 of exactly `datagramLength` bytes (18 or more), zero padded.
    void sendOpenConnectionRequest1(uint8_t protocolVersion, size_t datagramLength);
    // Request 2 naming the server's address; `mtu` is the 16-bit field.
    void sendOpenConnectionRequest2(uint16_t mtu, int64_t clientId = DEFAULT_CLIENT_ID);
    // The next datagram with first byte `id` that isn't a data datagram, ACK or NACK.
    std::optional<std::vector<uint8_t>> nextOffline(uint8_t id, std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);

    // --- Frames out ----------------------------------------------------------
    // A frame of `reliability` around `payload`, numbered from the peer's own
    // counters: the next messageIndex when reliable, the next orderIndex of
    // channel 0 when ordered.
    PeerFrame frame(std::vector<uint8_t> payload, int reliability = 3);
    // The fragments of one split set, `fragmentSize` bytes each (the last takes
    // the rest), numbered as above: one orderIndex for the set, one
    // messageIndex per fragment, a fresh splitId.
    std::vector<PeerFrame> fragments(const std::vector<uint8_t>& payload, size_t fragmentSize, int reliability = 3);
    // Sends the frames in one datagram under the next sequence number (or the
    // one given) and returns the number used.
    uint32_t sendFrames(const std::vector<PeerFrame>& frames);
    uint32_t sendFramesAs(uint32_t sequenceNumber, const std::vector<PeerFrame>& frames);
    // One payload, RELIABLE_ORDERED; split into datagrams of their own when
    // it is longer than `fragmentSize`.
    void sendPayload(const std::vector<uint8_t>& payload, size_t fragmentSize = 1000);
    void sendNack(const std::vector<std::pair<uint32_t, uint32_t>>& ranges);
    // Control payloads, framed RELIABLE_ORDERED.
    void sendConnectionRequest(int64_t timestamp, int64_t clientId = DEFAULT_CLIENT_ID);
    // NewIncomingConnection naming `port` (the server's by default) with
    // `extraAddresses` filler addresses.
    void sendNewIncomingConnection(std::optional<uint16_t> port = std::nullopt, int extraAddresses = 20);
    void sendConnectedPing(int64_t clientTime);
    void sendDisconnect();

    // --- Whole exchanges -------------------------------------------------------
    // Request 1 (of `mtu` bytes), request 2, ConnectionRequest, waits for
    // ConnectionRequestAccepted, then NewIncomingConnection. True when the
    // server accepted. `serverId()` is known afterwards.
    bool connect(uint16_t mtu = 1400, uint8_t protocolVersion = 11);
    int64_t serverId() const { return serverId_; }

    // --- Reading the connection -------------------------------------------------
    // Complete payloads (fragments reassembled), in arrival order.
    std::optional<std::vector<uint8_t>> nextPayload(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    // Skips payloads with another first byte (the server's pings, say).
    std::optional<std::vector<uint8_t>> nextPayloadWithId(uint8_t id,
                                                          std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    // Data datagrams as they came, before deduplication and reassembly.
    std::optional<PeerDatagram> nextDatagram(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    std::optional<PeerAcknowledgement> nextAck(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    std::optional<PeerAcknowledgement> nextNack(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);

    // Acknowledge every data datagram as it is read.
    bool autoAck = true;

    // Off unless set, so that tests see exactly the datagrams they send. Set,
    // the peer copes with loss as a console's RakNet does: a data datagram
    // that isn't acknowledged within this time goes out again, same frames
    // under the next sequence number, and connect() repeats an offline
    // request whose reply hasn't come. For load generators, where a busy
    // receiver drops datagrams.
    std::optional<std::chrono::milliseconds> resendAfter;

    // --- Wire forms, for tests that build or check bytes themselves -------------
    static std::vector<uint8_t> encodeAcknowledgement(const PeerAcknowledgement& acknowledgement);
    // The 7-byte IPv4 or 29-byte IPv6 address form.
    static std::vector<uint8_t> encodeAddress(const foundation::SocketAddress& address);

private:
    // Reads one datagram into the backlogs; false when the timeout ran out.
    bool pump(std::chrono::milliseconds timeout);
    void file(std::vector<uint8_t> bytes);
    void fileFrame(PeerFrame frame);
    template <typename T>
    std::optional<T> take(std::deque<T>& backlog, std::chrono::milliseconds timeout);
    // Sends, then waits for the offline reply `id`, repeating the send after
    // `resendAfter` when that is set.
    std::optional<std::vector<uint8_t>> askOffline(uint8_t id, const std::function<void()>& send);
    void resendOverdue();

    int fd_ = -1;
    foundation::SocketAddress server_;
    int64_t serverId_ = 0;

    uint32_t nextSequenceNumber_ = 0;
    uint32_t nextMessageIndex_ = 0;
    uint32_t nextOrderIndex_ = 0;
    uint16_t nextSplitId_ = 0;

    std::deque<std::vector<uint8_t>> raw_;
    std::deque<std::vector<uint8_t>> offline_;
    std::deque<PeerDatagram> datagrams_;
    std::deque<PeerAcknowledgement> acks_;
    std::deque<PeerAcknowledgement> nacks_;
    std::deque<std::vector<uint8_t>> payloads_;
    std::set<uint32_t> seenMessageIndices_;
    std::unordered_map<uint16_t, std::unordered_map<int32_t, std::vector<uint8_t>>> splits_;
    // Sent data datagrams waiting for their ACK, by sequence number (only
    // with `resendAfter`).
    struct Unacknowledged {
        std::vector<PeerFrame> frames;
        std::chrono::steady_clock::time_point sentAt;
    };
    std::map<uint32_t, Unacknowledged> unacknowledged_;
};

}  // namespace ferrylink::testing
