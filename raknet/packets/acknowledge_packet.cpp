#include "raknet/packets/acknowledge_packet.h"

#include <algorithm>

#include "foundation/fatal.h"
#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;

namespace {

constexpr uint8_t RECORD_RANGE = 0;
constexpr uint8_t RECORD_SINGLE = 1;

// Wire bytes of one record: flag and one or two u24.
int32_t recordSize(uint32_t start, uint32_t end) { return start == end ? 4 : 7; }

}  // namespace

AcknowledgePacket::AcknowledgePacket(uint8_t id, std::vector<uint32_t>& queue, int32_t budget)
    : Packet(id), mtu(budget) {
    std::sort(queue.begin(), queue.end());
    if (queue.empty()) {
        return;
    }
    uint32_t start = queue[0];
    uint32_t last = queue[0];
    size_t consumed = 0;
    size_t index = 1;
    bool exhausted = false;
    for (; index < queue.size(); ++index) {
        uint32_t current = queue[index];
        if (current == last + 1) {
            last = current;
            continue;
        }
        if (current == last) {
            continue;  // a duplicate takes no room
        }
        int32_t needed = recordSize(start, last);
        if (mtu < needed) {
            exhausted = true;
            break;
        }
        mtu -= needed;
        packets.push_back(Entry{start, last});
        // `current` counts as consumed from here on, even if its own range
        // never fits: the peer recovers it by retransmission.
        consumed = index + 1;
        start = current;
        last = current;
    }
    if (!exhausted) {
        int32_t needed = recordSize(start, last);
        if (mtu >= needed) {
            mtu -= needed;
            packets.push_back(Entry{start, last});
            consumed = queue.size();
        }
    }
    if (consumed != 0 && !packets.empty()) {
        queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(consumed));
    }
}

Decoded AcknowledgePacket::decode(ByteBuffer& buffer) {
    // A lambda, so that the reason's text is made only on failure.
    auto truncated = [] { return Decoded(foundation::unexpected("truncated acknowledgement")); };
    int16_t count = 0;
    if (!Packet::decode(buffer) || !readField(buffer, count)) {
        return truncated();
    }
    if (count < 0) {
        return foundation::unexpected("negative acknowledgement record count");
    }
    packets.clear();
    packets.reserve(std::min<size_t>(static_cast<size_t>(count), buffer.readableBytes() / 4));
    for (int16_t i = 0; i < count; ++i) {
        int8_t single = 0;
        if (!readField(buffer, single)) {
            return truncated();
        }
        auto start = readU24(buffer);
        auto end = single == RECORD_RANGE ? readU24(buffer) : start;
        if (!start || !end) {
            return truncated();
        }
        if (*start > *end) {
            return foundation::unexpected("acknowledgement range runs backwards");
        }
        packets.push_back(Entry{*start, *end});
    }
    return {};
}

void AcknowledgePacket::encode(ByteBuffer& buffer) const {
    if (packets.size() > 0xFFFF) {
        foundation::fatalFault("too many acknowledgement records");
    }
    buffer.writeInteger(id);
    buffer.writeInteger(static_cast<uint16_t>(packets.size()));
    for (const auto& entry : packets) {
        if (entry.start == entry.end) {
            buffer.writeInteger(RECORD_SINGLE);
            writeU24(buffer, entry.start);
        } else {
            buffer.writeInteger(RECORD_RANGE);
            writeU24(buffer, entry.start);
            writeU24(buffer, entry.end);
        }
    }
}

}  // namespace ferrylink::raknet
