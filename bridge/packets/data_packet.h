#pragma once

#include <cstdint>

#include "foundation/byte_buffer.h"

namespace ferrylink::bridge {

// The base of every game packet. A packet is built, coded once and dropped.
// The header is the packet id alone: the sub-client numbers that the protocol
// keeps above it are always 0 on the way out.
class DataPacket {
public:
    explicit DataPacket(uint8_t networkId) : NetworkId(networkId) {}
    virtual ~DataPacket() = default;

    // Set once the packet's bytes went into a batch.
    bool encoded = false;
    // Kept for the wire model; nothing reads it.
    bool allowBatching = false;
    const uint8_t NetworkId;

    // Reads the body; the caller has read the header already.
    virtual void decode(foundation::ByteBuffer& buffer);
    // Writes NetworkId through the protocol's var-int writer, so that ids below
    // 128 take two bytes ("82 00" for 2) and 143 takes three ("8F 81 00").
    virtual void encodeHeader(foundation::ByteBuffer& buffer);
    // Writes the body; packets without one keep this empty default.
    virtual void encode(foundation::ByteBuffer& buffer);
};

}  // namespace ferrylink::bridge
