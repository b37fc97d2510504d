#include "bridge/packets/resource_packs_info_packet.h"

namespace ferrylink::bridge {

using foundation::Endianness;

void ResourcePacksInfoPacket_422::encode(foundation::ByteBuffer& buffer) {
    buffer.writeInteger<uint8_t>(mustAccept);
    buffer.writeInteger<uint8_t>(hasScripts);
    buffer.writeInteger<uint16_t>(0, Endianness::little);  // behaviour packs
    buffer.writeInteger<uint16_t>(0, Endianness::little);  // resource packs
}

void ResourcePacksInfoPacket_448::encode(foundation::ByteBuffer& buffer) {
    buffer.writeInteger<uint8_t>(mustAccept);
    buffer.writeInteger<uint8_t>(hasScripts);
    buffer.writeInteger<uint8_t>(forcingServerPacksEnabled);
    buffer.writeInteger<uint16_t>(0, Endianness::little);  // behaviour packs
    buffer.writeInteger<uint16_t>(0, Endianness::little);  // resource packs
}

}  // namespace ferrylink::bridge
