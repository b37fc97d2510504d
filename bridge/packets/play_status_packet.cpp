#include "bridge/packets/play_status_packet.h"

#include "foundation/fatal.h"

namespace ferrylink::bridge {

void PlayStatusPacket::encode(PacketWriter& out) const {
    // Big-endian, unlike nearly every other integer of the game packets.
    out.i32(static_cast<int32_t>(foundation::forced(status)));
}

std::string_view caseName(PlayStatusPacket::Status status) {
    using Status = PlayStatusPacket::Status;
    switch (status) {
        case Status::LOGIN_SUCCESS:
            return "LOGIN_SUCCESS";
        case Status::LOGIN_FAILED_CLIENT_OLD:
            return "LOGIN_FAILED_CLIENT_OLD";
        case Status::LOGIN_FAILED_SERVER_OLD:
            return "LOGIN_FAILED_SERVER_OLD";
        case Status::PLAYER_SPAWN:
            return "PLAYER_SPAWN";
        case Status::LOGIN_FAILED_INVALID_TENANT:
            return "LOGIN_FAILED_INVALID_TENANT";
        case Status::LOGIN_FAILED_EDITION_MISMATCH_EDU_TO_VANILLA:
            return "LOGIN_FAILED_EDITION_MISMATCH_EDU_TO_VANILLA";
        case Status::LOGIN_FAILED_EDITION_MISMATCH_VANILLA_TO_EDU:
            return "LOGIN_FAILED_EDITION_MISMATCH_VANILLA_TO_EDU";
        case Status::FAILED_SERVER_FULL_SUB_CLIENT:
            return "FAILED_SERVER_FULL_SUB_CLIENT";
    }
    foundation::fatalFault();
}

}  // namespace ferrylink::bridge
