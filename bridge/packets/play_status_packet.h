#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// Tells a client how its login went, and later that it may spawn.
class PlayStatusPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 2;

    enum class Status : uint32_t {
        LOGIN_SUCCESS = 0,
        LOGIN_FAILED_CLIENT_OLD = 1,
        LOGIN_FAILED_SERVER_OLD = 2,
        PLAYER_SPAWN = 3,
        LOGIN_FAILED_INVALID_TENANT = 4,
        LOGIN_FAILED_EDITION_MISMATCH_EDU_TO_VANILLA = 5,
        LOGIN_FAILED_EDITION_MISMATCH_VANILLA_TO_EDU = 6,
        FAILED_SERVER_FULL_SUB_CLIENT = 7,
    };

    PlayStatusPacket() : DataPacket(networkId) {}
    explicit PlayStatusPacket(Status status) : DataPacket(networkId), status(status) {}

    std::optional<Status> status;

    // The status as a big-endian 32-bit number. An unset status is a fatal fault.
    void encode(PacketWriter& out) const override;
};

std::string_view caseName(PlayStatusPacket::Status status);

}  // namespace ferrylink::bridge
