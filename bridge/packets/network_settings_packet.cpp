#include "bridge/packets/network_settings_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

using foundation::Endianness;

void NetworkSettingsPacket::encode(foundation::ByteBuffer& buffer) {
    buffer.writeInteger<uint16_t>(1, Endianness::little);  // compression threshold
    buffer.writeInteger<uint16_t>(0, Endianness::little);  // compression algorithm
    buffer.writeInteger<uint8_t>(0);                       // client throttle enabled
    buffer.writeInteger<uint8_t>(0);                       // client throttle threshold
    foundation::writeFloat(buffer, 0.0f);                  // client throttle scalar
}

}  // namespace ferrylink::bridge
