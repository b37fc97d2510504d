#include "raknet/packets/packet.h"

#include <algorithm>

#include "foundation/fatal.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::forced;

void Packet::decode(ByteBuffer& buffer) { id = forced(buffer.readInteger<uint8_t>()); }

void Packet::encode(ByteBuffer&) const { foundation::fatalFault("this packet has no encoder"); }

bool OfflinePacket::hasValidMagic() const { return std::ranges::equal(magic, MAGIC); }

void OfflinePacket::readMagic(ByteBuffer& buffer) { magic = forced(buffer.readBytes(MAGIC.size())); }

void OfflinePacket::writeMagic(ByteBuffer& buffer) { buffer.writeBytes(MAGIC); }

}  // namespace ferrylink::raknet
