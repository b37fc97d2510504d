#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/byte_buffer.h"
#include "foundation/expected.h"

namespace ferrylink::bridge {

// The client's answer to the pack list and the pack stack.
struct ResourcePackClientResponsePacket {
    static constexpr uint8_t networkId = 8;

    // The numbers up to v2168; from there on the client counts from REFUSED
    // as 0 and has no NONE.
    enum class Status : uint8_t {
        NONE = 0,
        REFUSED = 1,
        SEND_PACKS = 2,
        HAVE_ALL_PACKS = 3,
        COMPLETED = 4,
    };

    Status status = Status::NONE;
    std::vector<std::string> packIds;

    // A status outside the list gives NONE; bytes cut short are a failure.
    static foundation::Expected<ResourcePackClientResponsePacket> decode(foundation::ByteBuffer& body,
                                                                         int32_t protocol);
};

std::string_view caseName(ResourcePackClientResponsePacket::Status status);

}  // namespace ferrylink::bridge
