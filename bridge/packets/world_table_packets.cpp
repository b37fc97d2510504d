#include "bridge/packets/world_table_packets.h"

#include "bridge/packets/version_groups.h"
#include "bridge/world_resources.h"

namespace ferrylink::bridge {

void BiomeDefinitionListPacket::encode(PacketWriter& out) const {
    if (protocol < v800) {
        out.bytes(WorldResources::require(WorldResource::biomeDefinitions).readableView());
        return;
    }
    out.varint(0);  // biome_definitions
    out.varint(0);  // string_list
}

void AvailableEntityIdentifiersPacket::encode(PacketWriter& out) const {
    out.bytes(WorldResources::require(WorldResource::entityIdentifiers).readableView());
}

void CreativeContentPacket::encode(PacketWriter& out) const {
    if (protocol >= v776) {
        out.varint(0);  // groups
    }
    out.varint(0);  // items
}

void ItemRegistryPacket::encode(PacketWriter& out) const {
    out.varint(0);  // itemstates
}

}  // namespace ferrylink::bridge
