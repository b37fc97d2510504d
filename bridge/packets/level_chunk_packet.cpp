#include "bridge/packets/level_chunk_packet.h"

#include <algorithm>
#include <array>

#include "bridge/packets/network_tag.h"
#include "bridge/packets/version_groups.h"

namespace ferrylink::bridge {

void LevelChunkPacket::encode(PacketWriter& out) const {
    foundation::ByteBuffer tag;
    writeEmptyCompoundTag(tag);
    std::array<uint8_t, dataLength> data{};
    auto tagBytes = tag.readableView();
    std::copy(tagBytes.begin(), tagBytes.end(), data.begin());

    out.zigzag32(chunkX);  // x
    out.zigzag32(chunkZ);  // z
    if (protocol >= v649) {
        out.zigzag32(0);  // dimension: the overworld
    }
    out.varint(0);  // sub_chunk_count
    if (protocol >= v2168) {
        out.boolean(false);  // highest_subchunk_count, absent
    }
    out.boolean(false);  // cache_enabled
    if (protocol >= v2168) {
        out.varint(0);  // blobs, present even without the cache
    }
    out.varint(dataLength);  // payload
    out.bytes(data);
}

}  // namespace ferrylink::bridge
