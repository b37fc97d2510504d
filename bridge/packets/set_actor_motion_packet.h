#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// An entity's velocity. Complete, though the session never sends one.
class SetActorMotionPacket : public DataPacket {
public:
    // The protocol's id for this packet.
    static constexpr uint8_t networkId = 40;
    SetActorMotionPacket() : DataPacket(networkId) {}

    uint64_t runtimeEntityId = 0;
    float x = 0;
    float y = 0;
    float z = 0;

    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
