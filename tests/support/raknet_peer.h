#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "bridge/sim/console_link.h"

namespace ferrylink::testing {

// A RakNet client of raw datagrams for driving a Listener over loopback: the
// simulated console's link, written apart from the code under test, with what
// only tests do on top. It sends any sequence number, NACKs, connected pings,
// handshake packets with odd fields, and keeps what it reads in backlogs of
// their own, from which the next...() calls take them in arrival order:
// - every datagram, raw, whatever it is;
// - ACKs and NACKs;
// - complete payloads, retransmitted copies dropped and fragments joined.
class RakNetPeer : public sim::ConsoleLink {
public:
    explicit RakNetPeer(foundation::SocketAddress server) : ConsoleLink(std::move(server)) {}

    using ConsoleLink::autoAck;
    using ConsoleLink::sendConnectionRequest;
    using ConsoleLink::sendFramesAs;
    using ConsoleLink::sendNewIncomingConnection;
    using ConsoleLink::sendOpenConnectionRequest1;
    using ConsoleLink::sendOpenConnectionRequest2;

    void sendNack(const std::vector<std::pair<uint32_t, uint32_t>>& ranges);
    void sendConnectedPing(int64_t clientTime);

    // The next datagram read, from a log of its own apart from the other backlogs.
    std::optional<std::vector<uint8_t>> receiveRaw(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    // The next complete payload with first byte `id`; those before it with
    // another (the server's pings, say) are dropped.
    std::optional<std::vector<uint8_t>> nextPayloadWithId(uint8_t id,
                                                          std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    std::optional<sim::LinkAcknowledgement> nextAck(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    std::optional<sim::LinkAcknowledgement> nextNack(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);

    // Wire forms, for tests that build or check bytes themselves.
    static std::vector<uint8_t> encodeAcknowledgement(const sim::LinkAcknowledgement& acknowledgement) {
        return sim::encodeAcknowledgement(acknowledgement);
    }
    static std::vector<uint8_t> encodeAddress(const foundation::SocketAddress& address) {
        return sim::encodeAddress(address);
    }

private:
    void onRead(std::span<const uint8_t> bytes) override;
    void onAcknowledgement(const sim::LinkAcknowledgement& acknowledgement) override;
    void onDatagram(const sim::LinkDatagram& datagram) override;

    std::deque<std::vector<uint8_t>> raw_;
    std::deque<sim::LinkAcknowledgement> acks_;
    std::deque<sim::LinkAcknowledgement> nacks_;
    std::deque<std::vector<uint8_t>> payloads_;
    sim::FrameJoiner joiner_;
};

}  // namespace ferrylink::testing
