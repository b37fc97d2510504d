#include "bridge/packets/network_settings_packet.h"

namespace ferrylink::bridge {

void NetworkSettingsPacket::encode(PacketWriter& out) const {
    out.lu16(1);         // compression_threshold
    out.lu16(0);         // compression_algorithm
    out.boolean(false);  // client_throttle
    out.u8(0);           // client_throttle_threshold
    out.lf32(0.0f);      // client_throttle_scalar
}

}  // namespace ferrylink::bridge
