#pragma once

#include <cstdint>

#include "foundation/byte_buffer.h"
#include "foundation/expected.h"

namespace ferrylink::bridge {

// The small packets a client sends on its way in. Each decoder reads the body
// behind the header and fails, with its reason, on bytes that make no sense.

// Asks for NetworkSettingsPacket before the login; the first place where a
// client of v554 or later names its protocol.
struct RequestNetworkSettingsPacket {
    static constexpr uint8_t networkId = 193;
    int32_t protocolVersion = 0;

    static foundation::Expected<RequestNetworkSettingsPacket> decode(foundation::ByteBuffer& body);
};

// Says that the client stands in the world: the moment of the hand-over.
struct SetLocalPlayerAsInitializedPacket {
    static constexpr uint8_t networkId = 113;
    uint64_t runtimeEntityId = 0;

    static foundation::Expected<SetLocalPlayerAsInitializedPacket> decode(foundation::ByteBuffer& body);
};

// Packets a client sends during the join that need no answer from a bridge.
inline constexpr uint16_t requestChunkRadiusId = 69;
inline constexpr uint16_t clientCacheStatusId = 129;
inline constexpr uint16_t serverboundLoadingScreenId = 312;
inline constexpr uint16_t resourcePacksReadyForValidationId = 340;

}  // namespace ferrylink::bridge
