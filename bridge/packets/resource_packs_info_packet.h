#pragma once

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The list of packs a client must have: always empty here. Two layouts, chosen
// by the client's protocol number (PipedPlayer::sendResourcePacksInfo).

class ResourcePacksInfoPacket_422 : public DataPacket {
public:
    static constexpr uint8_t networkId = 6;
    ResourcePacksInfoPacket_422() : DataPacket(networkId) {}

    bool mustAccept = false;
    bool hasScripts = false;

    void encode(foundation::ByteBuffer& buffer) override;
};

class ResourcePacksInfoPacket_448 : public DataPacket {
public:
    static constexpr uint8_t networkId = 6;
    ResourcePacksInfoPacket_448() : DataPacket(networkId) {}

    bool mustAccept = false;
    bool hasScripts = false;
    bool forcingServerPacksEnabled = false;

    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
