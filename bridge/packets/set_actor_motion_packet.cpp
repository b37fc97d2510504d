#include "bridge/packets/set_actor_motion_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

void SetActorMotionPacket::encode(foundation::ByteBuffer& buffer) {
    foundation::writeVarInt(buffer, runtimeEntityId);
    foundation::writeFloat(buffer, x);
    foundation::writeFloat(buffer, y);
    foundation::writeFloat(buffer, z);
}

}  // namespace ferrylink::bridge
