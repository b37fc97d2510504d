#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The client's answer to the pack list and the pack stack.
class ResourcePackClientResponsePacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 8;

    enum class Status : uint8_t {
        NONE = 0,
        REFUSED = 1,
        SEND_PACKS = 2,
        HAVE_ALL_PACKS = 3,
        COMPLETED = 4,
    };

    ResourcePackClientResponsePacket() : DataPacket(networkId) {}

    Status status = Status::NONE;
    std::vector<std::string> packIds;

    // A status byte outside 0..4 gives NONE; short input is a fatal fault.
    void decode(foundation::ByteBuffer& buffer) override;
};

std::string_view caseName(ResourcePackClientResponsePacket::Status status);

}  // namespace ferrylink::bridge
