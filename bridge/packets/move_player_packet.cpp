#include "bridge/packets/move_player_packet.h"

#include "bridge/packets/version_groups.h"

namespace ferrylink::bridge {

void MovePlayerPacket::encode(PacketWriter& out) const {
    out.varint(runtimeEntityId);  // runtime_id
    out.lf32(x);
    out.lf32(y);
    out.lf32(z);
    out.lf32(rotX);  // pitch
    out.lf32(rotY);  // yaw
    out.lf32(rotZ);  // head_yaw
    out.u8(0);           // mode: normal, so no teleport cause follows
    out.boolean(false);  // on_ground
    out.varint(0);       // ridden_runtime_id
    if (protocol >= v2168) {
        out.boolean(false);  // teleport, absent
    }
    out.varint(0);  // tick
}

}  // namespace ferrylink::bridge
