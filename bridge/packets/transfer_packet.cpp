#include "bridge/packets/transfer_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

void TransferPacket::encode(foundation::ByteBuffer& buffer) {
    foundation::writeVarString(buffer, address);
    buffer.writeInteger(port, foundation::Endianness::little);
}

}  // namespace ferrylink::bridge
