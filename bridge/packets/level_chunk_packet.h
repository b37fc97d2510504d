#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// An empty chunk: no sub-chunks, and 258 bytes of data that hold an empty tag
// compound where a real chunk keeps its biomes. The client finds no blocks in
// it, which is all the fake world needs.
class LevelChunkPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 58;
    // The length of the chunk data.
    static constexpr uint32_t dataLength = 258;

    LevelChunkPacket(int32_t protocol, int32_t chunkX, int32_t chunkZ)
        : DataPacket(networkId), protocol(protocol), chunkX(chunkX), chunkZ(chunkZ) {}

    const int32_t protocol;
    int32_t chunkX;
    int32_t chunkZ;

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
