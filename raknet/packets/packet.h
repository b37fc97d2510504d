#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <optional>
#include <vector>

#include "foundation/byte_buffer.h"
#include "foundation/expected.h"

namespace ferrylink::raknet {

// RakNet's offline message identifier, shared by every offline packet.
inline constexpr std::array<uint8_t, 16> MAGIC{0x00, 0xFF, 0xFF, 0x00, 0xFE, 0xFE, 0xFE, 0xFE,
                                               0xFD, 0xFD, 0xFD, 0xFD, 0x12, 0x34, 0x56, 0x78};

// What a decoder gives back: success, or why a peer's bytes can't be read.
// The reasons are fixed texts of ours, never anything the peer wrote. Bad bytes
// are the peer's problem: the caller decides what becomes of the peer.
using Decoded = foundation::Expected<void>;

// Reads one integer field into `field`; false, and `field` untouched, on short input.
template <std::integral T>
bool readField(foundation::ByteBuffer& buffer, T& field) {
    auto value = buffer.readInteger<T>();
    if (value) {
        field = *value;
    }
    return value.has_value();
}

// The root of all packet classes: made, filled, coded once and dropped.
class Packet {
public:
    explicit Packet(uint8_t id) : id(id) {}
    virtual ~Packet() = default;

    // Reads the id byte; fails on an empty buffer.
    virtual Decoded decode(foundation::ByteBuffer& buffer);
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
    std::optional<std::array<uint8_t, 16>> magic;

protected:
    bool readMagic(foundation::ByteBuffer& buffer);
    static void writeMagic(foundation::ByteBuffer& buffer);
};

}  // namespace ferrylink::raknet
