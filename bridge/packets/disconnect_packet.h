#pragma once

#include <string>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// Sends a client back to its menu with a message.
class DisconnectPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 5;

    DisconnectPacket() : DataPacket(networkId) {}
    DisconnectPacket(std::string message, bool hideDiscconnectionWindow)
        : DataPacket(networkId), hideDiscconnectionWindow(hideDiscconnectionWindow), message(std::move(message)) {}

    bool hideDiscconnectionWindow = false;
    std::string message;

    // The flag, then the message only when the window is shown.
    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
