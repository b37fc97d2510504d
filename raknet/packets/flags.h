#pragma once

#include <cstdint>

namespace ferrylink::raknet {

// Bits of a datagram's first byte. Only VALID, ACK and NACK steer anything.
struct Flags {
    static constexpr uint8_t VALID = 0x80;
    static constexpr uint8_t ACK = 0x40;
    static constexpr uint8_t NACK = 0x20;
    static constexpr uint8_t HAS_B_AND_AS = 0x20;
    static constexpr uint8_t PACKET_PAIR = 0x10;
    static constexpr uint8_t CONTINUOUS_SEND = 0x08;
    static constexpr uint8_t NEEDS_B_AND_AS = 0x04;
};

}  // namespace ferrylink::raknet
