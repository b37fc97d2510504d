#include "bridge/packets/transfer_packet.h"

#include "bridge/packets/version_groups.h"

namespace ferrylink::bridge {

void TransferPacket::encode(PacketWriter& out) const {
    out.string(address);  // server_address
    out.lu16(port);
    if (protocol >= v729) {
        out.boolean(false);  // reload_world
    }
    if (protocol >= v2168) {
        out.boolean(false);  // gatherings_configuration, absent
    }
}

}  // namespace ferrylink::bridge
