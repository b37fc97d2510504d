#include "bridge/packets/world_table_packets.h"

#include "bridge/world_resources.h"
#include "foundation/codecs.h"

namespace ferrylink::bridge {

void BiomeDefinitionListPacket::encode(foundation::ByteBuffer& buffer) {
    buffer.writeBytes(WorldResources::require(WorldResource::biomeDefinitions).readableView());
}

void AvailableEntityIdentifiersPacket::encode(foundation::ByteBuffer& buffer) {
    buffer.writeBytes(WorldResources::require(WorldResource::entityIdentifiers).readableView());
}

void CreativeContentPacket::encode(foundation::ByteBuffer& buffer) {
    foundation::writeVarInt(buffer, 0);  // item count
}

}  // namespace ferrylink::bridge
