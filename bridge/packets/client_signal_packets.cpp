#include "bridge/packets/client_signal_packets.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

using foundation::Expected;
using foundation::unexpected;

Expected<RequestNetworkSettingsPacket> RequestNetworkSettingsPacket::decode(foundation::ByteBuffer& body) {
    // Big-endian, like the protocol number of the login.
    auto protocol = body.readInteger<int32_t>(foundation::Endianness::big);
    if (!protocol) {
        return unexpected("network settings request cut short");
    }
    return RequestNetworkSettingsPacket{*protocol};
}

Expected<SetLocalPlayerAsInitializedPacket> SetLocalPlayerAsInitializedPacket::decode(foundation::ByteBuffer& body) {
    auto runtimeEntityId = foundation::readVarInt(body);
    if (!runtimeEntityId) {
        return unexpected("player initialisation cut short");
    }
    return SetLocalPlayerAsInitializedPacket{*runtimeEntityId};
}

}  // namespace ferrylink::bridge
