#pragma once

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The answer to RequestNetworkSettingsPacket: compress everything from one
// byte on, with raw deflate (algorithm 0), and no throttling. The same bytes
// for every client that asks.
class NetworkSettingsPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 143;
    NetworkSettingsPacket() : DataPacket(networkId) {}

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
