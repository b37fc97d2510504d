#include "raknet/receive_window.h"

namespace ferrylink::raknet {

ReceiveWindow::Arrival ReceiveWindow::arrive(uint32_t sequenceNumber) {
    const auto seq = static_cast<int32_t>(sequenceNumber);
    if (seq < windowStart_ || seq > windowEnd_) {
        return Arrival::ignored;
    }
    // Once a number has been taken the window starts at the newest one, so
    // of all numbers seen only that one can still lie inside it: a number
    // taken before is the newest, every other one in the window is new, and
    // so is every number of the gap below it.
    if (seq == lastSequenceNumber_) {
        return Arrival::ignored;
    }
    const int32_t diff = seq - lastSequenceNumber_;
    const auto missing = static_cast<size_t>(diff - 1);
    if (ackQueue_.size() >= QUEUE_LIMIT || nackQueue_.size() + missing > QUEUE_LIMIT) {
        return Arrival::overflow;
    }
    ackQueue_.push_back(sequenceNumber);
    for (int32_t number = lastSequenceNumber_ + 1; number < seq; ++number) {
        nackQueue_.push_back(static_cast<uint32_t>(number));
    }
    lastSequenceNumber_ = seq;
    windowStart_ += diff;
    windowEnd_ += diff;
    return Arrival::taken;
}

std::optional<AcknowledgePacket> ReceiveWindow::nextAck(int32_t budget) {
    if (ackQueue_.empty()) {
        return std::nullopt;
    }
    return AcknowledgePacket(ACK::ID, ackQueue_, budget);
}

std::optional<AcknowledgePacket> ReceiveWindow::nextNack(int32_t budget) {
    if (nackQueue_.empty()) {
        return std::nullopt;
    }
    return AcknowledgePacket(NACK::ID, nackQueue_, budget);
}

}  // namespace ferrylink::raknet
