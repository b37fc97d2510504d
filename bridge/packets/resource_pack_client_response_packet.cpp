#include "bridge/packets/resource_pack_client_response_packet.h"

#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using foundation::forced;

void ResourcePackClientResponsePacket::decode(foundation::ByteBuffer& buffer) {
    uint8_t raw = forced(buffer.readInteger<uint8_t>());
    status = raw <= static_cast<uint8_t>(Status::COMPLETED) ? static_cast<Status>(raw) : Status::NONE;
    uint16_t count = forced(buffer.readInteger<uint16_t>(foundation::Endianness::little));
    for (uint16_t i = 0; i < count; ++i) {
        packIds.push_back(forced(foundation::readVarString(buffer)));
    }
}

std::string_view caseName(ResourcePackClientResponsePacket::Status status) {
    using Status = ResourcePackClientResponsePacket::Status;
    switch (status) {
        case Status::NONE:
            return "NONE";
        case Status::REFUSED:
            return "REFUSED";
        case Status::SEND_PACKS:
            return "SEND_PACKS";
        case Status::HAVE_ALL_PACKS:
            return "HAVE_ALL_PACKS";
        case Status::COMPLETED:
            return "COMPLETED";
    }
    foundation::fatalFault();
}

}  // namespace ferrylink::bridge
