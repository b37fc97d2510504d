#pragma once

#include <cstdint>
#include <optional>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// Two packets a client sends that the session acts on by their id alone; their
// bodies are never read, so the fields stay unset.

// Asks for NetworkSettingsPacket before the login.
class RequestNetworkSettingsPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 193;
    RequestNetworkSettingsPacket() : DataPacket(networkId) {}

    std::optional<int32_t> protocolVersion;
};

// Says that the client stands in the world: the moment of the hand-over.
class SetLocalPlayerAsInitializedPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 113;
    SetLocalPlayerAsInitializedPacket() : DataPacket(networkId) {}

    std::optional<uint64_t> runtimeEntityId;
};

}  // namespace ferrylink::bridge
