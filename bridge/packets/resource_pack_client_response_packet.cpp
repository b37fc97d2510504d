#include "bridge/packets/resource_pack_client_response_packet.h"

#include "bridge/packets/version_groups.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using foundation::Expected;
using foundation::unexpected;
using Status = ResourcePackClientResponsePacket::Status;

namespace {

Status statusOf(uint64_t raw) {
    return raw <= static_cast<uint8_t>(Status::COMPLETED) ? static_cast<Status>(raw) : Status::NONE;
}

bool readPackIds(foundation::ByteBuffer& body, uint64_t count, std::vector<std::string>& packIds) {
    for (uint64_t i = 0; i < count; ++i) {
        auto id = foundation::readVarString(body);
        if (!id) {
            return false;
        }
        packIds.push_back(std::move(*id));
    }
    return true;
}

}  // namespace

Expected<ResourcePackClientResponsePacket> ResourcePackClientResponsePacket::decode(foundation::ByteBuffer& body,
                                                                                  int32_t protocol) {
    ResourcePackClientResponsePacket response;
    if (protocol >= v2168) {
        auto raw = foundation::readVarInt(body);
        auto name = raw ? foundation::readVarString(body) : std::nullopt;
        if (!name) {
            return unexpected("resource pack response cut short");
        }
        response.status = statusOf(*raw + 1);
        // The list follows only when the client asks for packs.
        auto count = response.status == Status::SEND_PACKS ? foundation::readVarInt(body) : uint64_t{0};
        if (!count || !readPackIds(body, *count, response.packIds)) {
            return unexpected("resource pack response cut short");
        }
        return response;
    }
    auto raw = body.readInteger<uint8_t>();
    auto count = raw ? body.readInteger<uint16_t>(foundation::Endianness::little) : std::nullopt;
    if (!count || !readPackIds(body, *count, response.packIds)) {
        return unexpected("resource pack response cut short");
    }
    response.status = statusOf(*raw);
    return response;
}

std::string_view caseName(Status status) {
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
