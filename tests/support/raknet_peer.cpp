#include "support/raknet_peer.h"

namespace ferrylink::testing {

void RakNetPeer::sendNack(const std::vector<std::pair<uint32_t, uint32_t>>& ranges) {
    sendRaw(encodeAcknowledgement({true, ranges}));
}

void RakNetPeer::sendConnectedPing(int64_t clientTime) {
    std::vector<uint8_t> ping{0x00};
    for (int shift = 56; shift >= 0; shift -= 8) {
        ping.push_back(static_cast<uint8_t>(static_cast<uint64_t>(clientTime) >> shift));
    }
    sendFrames({frame(std::move(ping))});
}

void RakNetPeer::onRead(std::span<const uint8_t> bytes) { raw_.emplace_back(bytes.begin(), bytes.end()); }

void RakNetPeer::onAcknowledgement(const sim::LinkAcknowledgement& acknowledgement) {
    (acknowledgement.negative ? nacks_ : acks_).push_back(acknowledgement);
}

void RakNetPeer::onDatagram(const sim::LinkDatagram& datagram) {
    for (const auto& frame : datagram.frames) {
        if (auto whole = joiner_.take(frame)) {
            payloads_.push_back(std::move(whole->payload));
        }
    }
}

std::optional<std::vector<uint8_t>> RakNetPeer::receiveRaw(std::chrono::milliseconds timeout) {
    return take(raw_, timeout);
}

std::optional<std::vector<uint8_t>> RakNetPeer::nextPayloadWithId(uint8_t id, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        auto payload = take(payloads_, std::max(left, std::chrono::milliseconds(0)));
        if (!payload) {
            return std::nullopt;
        }
        if (!payload->empty() && (*payload)[0] == id) {
            return payload;
        }
    }
}

std::optional<sim::LinkAcknowledgement> RakNetPeer::nextAck(std::chrono::milliseconds timeout) {
    return take(acks_, timeout);
}

std::optional<sim::LinkAcknowledgement> RakNetPeer::nextNack(std::chrono::milliseconds timeout) {
    return take(nacks_, timeout);
}

}  // namespace ferrylink::testing
