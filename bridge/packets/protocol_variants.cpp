#include "bridge/packets/protocol_variants.h"

#include "bridge/packets/resource_pack_stack_packet.h"
#include "bridge/packets/resource_packs_info_packet.h"
#include "bridge/packets/start_game_packet.h"

namespace ferrylink::bridge {

std::unique_ptr<DataPacket> resourcePacksInfoFor(int32_t protocol) {
    if (protocol <= 440) {
        return std::make_unique<ResourcePacksInfoPacket_422>();
    }
    return std::make_unique<ResourcePacksInfoPacket_448>();
}

std::unique_ptr<DataPacket> resourcePackStackFor(int32_t protocol) {
    if (protocol <= 408) {
        return std::make_unique<ResourcePackStackPacket>();
    }
    return std::make_unique<ResourcePackStackPacket_419>();
}

std::unique_ptr<DataPacket> startGameFor(int32_t protocol) {
    if (protocol <= 408) {
        return std::make_unique<StartGamePacket>();
    }
    if (protocol <= 427) {
        return std::make_unique<StartGamePacket_419>();
    }
    if (protocol <= 439) {
        return std::make_unique<StartGamePacket_428>();
    }
    if (protocol <= 464) {
        return std::make_unique<StartGamePacket_440>();
    }
    if (protocol <= 474) {
        return std::make_unique<StartGamePacket_465>();
    }
    if (protocol <= 502) {
        return std::make_unique<StartGamePacket_475>();
    }
    if (protocol <= 525) {
        return std::make_unique<StartGamePacket_503>();
    }
    if (protocol <= 533) {
        return std::make_unique<StartGamePacket_526>();
    }
    if (protocol <= 542) {
        return std::make_unique<StartGamePacket_534>();
    }
    return std::make_unique<StartGamePacket_544>();
}

bool wantsCreativeContent(int32_t protocol) { return protocol >= 409; }

}  // namespace ferrylink::bridge
