#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The player's first position, sent just ahead of the start-game record.
class MovePlayerPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 19;
    explicit MovePlayerPacket(int32_t protocol) : DataPacket(networkId), protocol(protocol) {}

    const int32_t protocol;
    uint64_t runtimeEntityId = 1;
    float x = 0;
    float y = 0;
    float z = 0;
    // Pitch, yaw and head yaw.
    float rotX = 0;
    float rotY = 0;
    float rotZ = 0;

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
