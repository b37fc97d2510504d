#include "bridge/packets/disconnect_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

void DisconnectPacket::encode(foundation::ByteBuffer& buffer) {
    buffer.writeInteger<uint8_t>(hideDiscconnectionWindow ? 1 : 0);
    if (!hideDiscconnectionWindow) {
        foundation::writeVarString(buffer, message);
    }
}

}  // namespace ferrylink::bridge
