#include "bridge/packets/move_player_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

void MovePlayerPacket::encode(foundation::ByteBuffer& buffer) {
    foundation::writeVarInt(buffer, runtimeEntityId);
    foundation::writeFloat(buffer, x);
    foundation::writeFloat(buffer, y);
    foundation::writeFloat(buffer, z);
    foundation::writeFloat(buffer, rotX);
    foundation::writeFloat(buffer, rotY);
    foundation::writeFloat(buffer, rotZ);
    buffer.writeInteger<uint8_t>(0);     // mode
    buffer.writeInteger<uint8_t>(0);     // on ground
    foundation::writeVarInt(buffer, 0);  // riding entity id
    buffer.writeInteger<uint8_t>(0);     // closing byte the client expects
}

}  // namespace ferrylink::bridge
