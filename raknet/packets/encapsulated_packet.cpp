#include "raknet/packets/encapsulated_packet.h"

#include <limits>

#include "foundation/fatal.h"
#include "raknet/packets/wire.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::fatalFault;

namespace {

const Reliability& kindOf(const std::optional<Reliability>& reliability) {
    if (!reliability) {
        fatalFault("frame without a reliability");
    }
    return *reliability;
}

constexpr uint8_t SPLIT_FLAG = 0x10;
constexpr uint16_t LONGEST_LENGTH_IN_BITS = 65528;

}  // namespace

Decoded EncapsulatedPacket::decode(ByteBuffer& from) {
    // A lambda, so that the reason's text is made only on failure.
    auto truncated = [] { return Decoded(foundation::unexpected("truncated frame")); };
    uint8_t flags = 0;
    uint16_t lengthInBits = 0;
    if (!readField(from, flags) || !readField(from, lengthInBits)) {
        return truncated();
    }
    // Three bits can name no kind beyond the eight there are.
    reliability = Reliability::fromId(flags >> 5);
    split = (flags & SPLIT_FLAG) != 0;
    if (lengthInBits > LONGEST_LENGTH_IN_BITS) {
        return foundation::unexpected("frame longer than 65528 bits");
    }
    uint32_t length = (static_cast<uint32_t>(lengthInBits) + 7) / 8;

    if (reliability->reliable) {
        auto index = readU24(from);
        if (!index) {
            return truncated();
        }
        messageIndex = static_cast<int32_t>(*index);
    }
    // Sequenced and ordered fields are read so the next frame is found; the
    // receive path doesn't act on them.
    if (reliability->sequenced) {
        auto index = readU24(from);
        if (!index) {
            return truncated();
        }
        sequenceIndex = static_cast<int32_t>(*index);
    }
    if (reliability->ordered || reliability->sequenced) {
        auto index = readU24(from);
        uint8_t channel = 0;
        if (!index || !readField(from, channel)) {
            return truncated();
        }
        orderIndex = static_cast<int32_t>(*index);
        orderChannel = channel;
    }
    if (split) {
        int16_t id = 0;
        if (!readField(from, splitCount) || !readField(from, id) || !readField(from, splitIndex)) {
            return truncated();
        }
        splitId = id;
    }
    auto payload = from.readSlice(length);
    if (!payload) {
        return truncated();
    }
    buffer = std::move(*payload);
    return {};
}

void EncapsulatedPacket::encode(ByteBuffer& to) const {
    const Reliability& kind = kindOf(reliability);
    int flags = kind.id << 5 | (split ? SPLIT_FLAG : 0);
    if (flags > std::numeric_limits<int8_t>::max()) {
        fatalFault("frame kind can't be sent");
    }
    auto payload = buffer ? buffer->readableView() : std::span<const uint8_t>();
    int64_t lengthInBits = static_cast<int64_t>(payload.size()) * 8;
    if (lengthInBits > std::numeric_limits<int16_t>::max()) {
        fatalFault("frame payload too long");
    }

    to.writeInteger(static_cast<int8_t>(flags));
    to.writeInteger(static_cast<int16_t>(lengthInBits));
    if (kind.reliable) {
        if (!messageIndex || *messageIndex < 0) {
            fatalFault("reliable frame without a message index");
        }
        writeU24(to, static_cast<uint32_t>(*messageIndex));
    }
    if (kind.sequenced) {
        writeU24(to, static_cast<uint32_t>(sequenceIndex));
    }
    if (kind.ordered || kind.sequenced) {
        writeU24(to, static_cast<uint32_t>(orderIndex));
        to.writeInteger(static_cast<uint8_t>(orderChannel));
    }
    if (split) {
        if (splitId < std::numeric_limits<int16_t>::min() || splitId > std::numeric_limits<int16_t>::max()) {
            fatalFault("split id out of range");
        }
        to.writeInteger(splitCount);
        to.writeInteger(static_cast<int16_t>(splitId));
        to.writeInteger(splitIndex);
    }
    to.writeBytes(payload);
}

int32_t EncapsulatedPacket::size() const {
    int32_t payload = buffer ? static_cast<int32_t>(buffer->readableBytes()) : 0;
    return kindOf(reliability).size + 3 + (split ? 10 : 0) + payload;
}

}  // namespace ferrylink::raknet
