#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The packs a client must have before it may join: none, in the layout of
// the client's protocol.
class ResourcePacksInfoPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 6;
    explicit ResourcePacksInfoPacket(int32_t protocol) : DataPacket(networkId), protocol(protocol) {}

    const int32_t protocol;
    bool mustAccept = false;
    bool hasScripts = false;
    bool forcingServerPacksEnabled = false;

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
