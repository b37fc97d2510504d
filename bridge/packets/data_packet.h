#pragma once

#include <cstdint>

#include "bridge/packets/packet_writer.h"

namespace ferrylink::bridge {

// The base of every game packet we write. A packet is built for one client
// (those whose layout changes with the game take its protocol number), coded
// once and dropped. The header is the packet id alone: the sub-client numbers
// that the protocol keeps above it are always 0 on the way out. Packets that
// clients send have decoders of their own that report bad bytes to the caller.
class DataPacket {
public:
    explicit DataPacket(uint8_t networkId) : NetworkId(networkId) {}
    virtual ~DataPacket() = default;

    // Set once the packet's bytes went into a batch.
    bool encoded = false;
    // Kept for the wire model; nothing reads it.
    bool allowBatching = false;
    const uint8_t NetworkId;

    // Writes NetworkId as a varint, so that through the protocol writer ids
    // below 128 take two bytes ("82 00" for 2) and 143 takes three ("8F 81 00").
    virtual void encodeHeader(PacketWriter& out) const { out.varint(NetworkId); }
    // Writes the body; packets without one keep this empty default.
    virtual void encode(PacketWriter&) const {}
};

}  // namespace ferrylink::bridge
