#pragma once

#include <cstdint>
#include <string>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The client's login: its game protocol number and a chain of web tokens, one
// of which names the player. Only ever decoded. The chain is read but not
// verified, and the client data token behind it (skin, device) isn't read.
class LoginPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 1;
    LoginPacket() : DataPacket(networkId) {}

    std::string XUID;
    std::string identity;
    // Empty when no token of the chain carried identity: a failed login.
    std::string displayName;
    int32_t protocolVersion = 408;
    std::string publicKey;

    // A token that doesn't decode is logged through the current server and
    // skipped; every other fault of the packet or of the chain is fatal.
    void decode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
