#include "bridge/packets/level_chunk_packet.h"

#include <algorithm>
#include <array>

#include "bridge/packets/network_tag.h"
#include "bridge/server_link.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

void LevelChunkPacket::encode(foundation::ByteBuffer& buffer) {
    foundation::ByteBuffer tag = ServerLink::current()->channelAllocator().buffer(dataLength);
    writeEmptyCompoundTag(tag);
    std::array<uint8_t, dataLength> data{};
    auto tagBytes = tag.readableView();
    std::copy(tagBytes.begin(), tagBytes.end(), data.begin());

    foundation::writeSignedVarInt(buffer, chunkX);
    foundation::writeSignedVarInt(buffer, chunkZ);
    foundation::writeVarInt(buffer, 0);   // sub-chunk count
    buffer.writeInteger<uint8_t>(0);      // blob cache enabled
    foundation::writeVarInt(buffer, dataLength);
    buffer.writeBytes(data);
}

}  // namespace ferrylink::bridge
