#include "bridge/packets/data_packet.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

void DataPacket::decode(foundation::ByteBuffer&) {}

void DataPacket::encodeHeader(foundation::ByteBuffer& buffer) { foundation::writeVarInt(buffer, NetworkId); }

void DataPacket::encode(foundation::ByteBuffer&) {}

}  // namespace ferrylink::bridge
