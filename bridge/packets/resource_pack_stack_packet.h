#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The order in which a client applies its packs: no packs at all, in the
// layout of the client's protocol.
class ResourcePackStackPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 7;
    explicit ResourcePackStackPacket(int32_t protocol) : DataPacket(networkId), protocol(protocol) {}

    const int32_t protocol;
    bool mustAccept = false;

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
