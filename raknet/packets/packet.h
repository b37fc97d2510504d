#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "foundation/byte_buffer.h"

namespace ferrylink::raknet {

// RakNet's offline message identifier, shared by every offline packet.
inline constexpr std::array<uint8_t, 16> MAGIC{0x00, 0xFF, 0xFF, 0x00, 0xFE, 0xFE, 0xFE, 0xFE,
                                               0xFD, 0xFD, 0xFD, 0xFD, 0x12, 0x34, 0x56, 0x78};

// The root of all packet classes: made, filled, coded once and dropped.
// Decoders trust their input; a short read ends the process.
class Packet {
public:
    explicit Packet(uint8_t id) : id(id) {}
    virtual ~Packet() = default;

    // Reads the id byte; an empty buffer is a fatal fault.
    virtual void decode(foundation::ByteBuffer& buffer);
    // The root has no layout to write: calling it is a fatal fault.
    virtual void encode(foundation::ByteBuffer& buffer) const;

    uint8_t id;
};

// A packet sent before there is a connection; it carries MAGIC.
class OfflinePacket : public Packet {
public:
    using Packet::Packet;

    // Whether the decoded magic is MAGIC, in length and in every byte.
    bool hasValidMagic() const;

    // Empty until decoded.
    std::vector<uint8_t> magic;

protected:
    void readMagic(foundation::ByteBuffer& buffer);
    static void writeMagic(foundation::ByteBuffer& buffer);
};

}  // namespace ferrylink::raknet
