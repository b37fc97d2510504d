#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The tables a client wants before it says it's ready, all empty or passed
// through from the server's resource files as they stand, with no length in
// front: a file that was never loaded is a fatal fault when its packet is
// encoded.

// The biomes: the resource file while the list was one tag compound, an empty
// list of definitions and names from v800 on.
class BiomeDefinitionListPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 122;
    explicit BiomeDefinitionListPacket(int32_t protocol) : DataPacket(networkId), protocol(protocol) {}

    const int32_t protocol;

    void encode(PacketWriter& out) const override;
};

// The entity kinds: the resource file.
class AvailableEntityIdentifiersPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 119;
    AvailableEntityIdentifiersPacket() : DataPacket(networkId) {}

    void encode(PacketWriter& out) const override;
};

// An empty creative inventory: no items, and from v776 on no groups either.
class CreativeContentPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 145;
    explicit CreativeContentPacket(int32_t protocol) : DataPacket(networkId), protocol(protocol) {}

    const int32_t protocol;

    void encode(PacketWriter& out) const override;
};

// The item table that left the start-game record at v776: empty, sent right
// behind it.
class ItemRegistryPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 162;
    ItemRegistryPacket() : DataPacket(networkId) {}

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
