#pragma once

#include <cstdint>
#include <string>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// Sends a client back to its menu with a message.
class DisconnectPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 5;

    DisconnectPacket(int32_t protocol, std::string message, bool hideDiscconnectionWindow)
        : DataPacket(networkId),
          protocol(protocol),
          hideDiscconnectionWindow(hideDiscconnectionWindow),
          message(std::move(message)) {}

    const int32_t protocol;
    bool hideDiscconnectionWindow = false;
    std::string message;

    // The message goes out only when the window is shown.
    void encode(PacketWriter& out) const override;
};

}  // namespace ferrylink::bridge
