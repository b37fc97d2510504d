#pragma once

#include <cstdint>
#include <optional>

#include "foundation/byte_buffer.h"
#include "raknet/packets/packet.h"
#include "raknet/reliability.h"

namespace ferrylink::raknet {

// One frame inside a datagram:
//   flags (1: reliability id in bits 7-5, split in bit 4), length in bits (2),
//   messageIndex (u24) when reliable, sequenceIndex (u24) when sequenced,
//   orderIndex (u24) and orderChannel (1) when ordered or sequenced,
//   splitCount (4), splitId (2), splitIndex (4) when split, then the payload.
class EncapsulatedPacket {
public:
    // Reads one frame; fails on a short read or a length above 65528 bits.
    // The payload is a slice of `buffer`, not a copy.
    Decoded decode(foundation::ByteBuffer& buffer);
    // Writes the frame without moving the payload's reader, so it can be sent
    // again. Kinds with id 4 or more, payloads of 4096 bytes or more, a missing
    // messageIndex on a reliable kind and a splitId beyond 16 bits are fatal.
    void encode(foundation::ByteBuffer& buffer) const;
    // reliability.size + 3 + 10 when split + payload bytes: the room it takes
    // in a datagram as the send path counts it.
    int32_t size() const;

    std::optional<Reliability> reliability;
    std::optional<Priority> priority;
    std::optional<int32_t> messageIndex;
    int32_t sequenceIndex = 0;
    int32_t orderIndex = 0;
    int16_t orderChannel = 0;
    bool split = false;
    int32_t splitCount = 0;
    int32_t splitId = 0;
    int32_t splitIndex = 0;
    std::optional<foundation::ByteBuffer> buffer;
    bool needACK = false;
    int32_t ackId = 0;
};

}  // namespace ferrylink::raknet
