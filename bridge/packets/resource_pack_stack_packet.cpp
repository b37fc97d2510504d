#include "bridge/packets/resource_pack_stack_packet.h"

#include "bridge/packets/version_groups.h"

namespace ferrylink::bridge {

void ResourcePackStackPacket::encode(PacketWriter& out) const {
    out.boolean(mustAccept);
    if (protocol < v898) {
        out.varint(0);  // behavior_packs
    }
    out.varint(0);  // resource_packs
    if (protocol < v419) {
        out.boolean(false);  // experimental
    }
    out.string("*");  // game_version
    if (protocol >= v419) {
        out.li32(0);         // experiments
        out.boolean(false);  // experiments_previously_used
    }
    if (protocol >= v671) {
        out.boolean(false);  // has_editor_packs
    }
}

}  // namespace ferrylink::bridge
