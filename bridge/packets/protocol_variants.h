#pragma once

#include <cstdint>
#include <memory>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The layouts a client of game protocol `protocol` gets. No number is
// refused: one below the oldest gets the oldest layout, one above the newest
// the newest.

// ResourcePacksInfoPacket_422 up to 440, _448 from 441 on.
std::unique_ptr<DataPacket> resourcePacksInfoFor(int32_t protocol);
// ResourcePackStackPacket up to 408, _419 from 409 on.
std::unique_ptr<DataPacket> resourcePackStackFor(int32_t protocol);
// One of the ten StartGamePacket layouts; the numbers in their names are not
// the thresholds.
std::unique_ptr<DataPacket> startGameFor(int32_t protocol);
// Clients from 409 on get an (empty) CreativeContentPacket after StartGame.
bool wantsCreativeContent(int32_t protocol);

}  // namespace ferrylink::bridge
