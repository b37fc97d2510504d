#include "bridge/packets/disconnect_packet.h"

#include "bridge/packets/version_groups.h"

namespace ferrylink::bridge {

void DisconnectPacket::encode(PacketWriter& out) const {
    if (protocol >= v622) {
        out.zigzag32(0);  // reason: unknown
    }
    out.boolean(hideDiscconnectionWindow);
    if (!hideDiscconnectionWindow) {
        out.string(message);
        if (protocol >= v712) {
            out.string("");  // filtered_message
        }
    }
}

}  // namespace ferrylink::bridge
