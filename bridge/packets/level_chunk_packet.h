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

    LevelChunkPacket(int32_t chunkX, int32_t chunkZ) : DataPacket(networkId), chunkX(chunkX), chunkZ(chunkZ) {}

    int32_t chunkX;
    int32_t chunkZ;

    // Takes a buffer from the current server's channel (fatal without one).
    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
