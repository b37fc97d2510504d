#pragma once

#include <cstdint>
#include <string>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// Sends the client on to another server, which it then joins by itself.
class TransferPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 85;

    TransferPacket(int32_t protocol, std::string address, uint16_t port)
        : DataPacket(networkId), protocol(protocol), address(std::move(address)), port(port) {}

    const int32_t protocol;
    std::string address;
    uint16_t port = 19132;

    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
