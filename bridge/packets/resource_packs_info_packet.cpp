#include "bridge/packets/resource_packs_info_packet.h"

#include <array>

#include "bridge/packets/version_groups.h"

namespace ferrylink::bridge {

void ResourcePacksInfoPacket::encode(PacketWriter& out) const {
    out.boolean(mustAccept);
    if (protocol >= v662) {
        out.boolean(false);  // has_addons
    }
    out.boolean(hasScripts);
    if (protocol >= v818) {
        out.boolean(false);  // disable_vibrant_visuals
    }
    if (protocol >= v448 && protocol < v729) {
        out.boolean(forcingServerPacksEnabled);
    }
    if (protocol < v729) {
        out.lu16(0);  // behaviour_packs
    }
    if (protocol >= v766) {
        out.bytes(std::array<uint8_t, 16>{});  // world_template: the nil uuid
        out.string("");                        // world_template version
    }
    if (protocol >= v2168) {
        out.varint(0);  // texture_packs
    } else {
        out.lu16(0);  // texture_packs
    }
    if (protocol >= v618 && protocol < v748) {
        out.varint(0);  // resource_pack_links
    }
}

}  // namespace ferrylink::bridge
