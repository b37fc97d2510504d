#pragma once

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The tables a client wants before it says it's ready. The first two pass the
// server's resource files through as they stand, with no length in front: a
// file that was never loaded is a fatal fault when its packet is encoded.

class BiomeDefinitionListPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 122;
    BiomeDefinitionListPacket() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

class AvailableEntityIdentifiersPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 119;
    AvailableEntityIdentifiersPacket() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// An empty creative inventory: the item count 0 and nothing else.
class CreativeContentPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 145;
    CreativeContentPacket() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
