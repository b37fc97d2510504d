#include "bridge/packets/resource_pack_stack_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

using foundation::Endianness;

void ResourcePackStackPacket::encode(foundation::ByteBuffer& buffer) {
    buffer.writeInteger<uint8_t>(mustAccept);
    foundation::writeVarInt(buffer, 0);           // behaviour packs
    foundation::writeVarInt(buffer, 0);           // resource packs
    buffer.writeInteger<uint8_t>(0);              // experimental
    foundation::writeVarString(buffer, "*");      // game version
}

void ResourcePackStackPacket_419::encode(foundation::ByteBuffer& buffer) {
    buffer.writeInteger<uint8_t>(mustAccept);
    foundation::writeVarInt(buffer, 0);                    // behaviour packs
    foundation::writeVarInt(buffer, 0);                    // resource packs
    foundation::writeVarString(buffer, "*");               // game version
    buffer.writeInteger<int32_t>(0, Endianness::little);   // experiments
    buffer.writeInteger<uint8_t>(0);                       // experiments previously toggled
}

}  // namespace ferrylink::bridge
