#pragma once

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The order in which a client applies its packs: no packs at all. Two layouts,
// chosen by the client's protocol number (PipedPlayer::sendResourcePackStack).

class ResourcePackStackPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 7;
    ResourcePackStackPacket() : DataPacket(networkId) {}

    bool mustAccept = false;

    void encode(foundation::ByteBuffer& buffer) override;
};

class ResourcePackStackPacket_419 : public DataPacket {
public:
    static constexpr uint8_t networkId = 7;
    ResourcePackStackPacket_419() : DataPacket(networkId) {}

    bool mustAccept = false;

    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
