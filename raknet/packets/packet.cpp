#include "raknet/packets/packet.h"

#include <algorithm>

#include "foundation/fatal.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;

Decoded Packet::decode(ByteBuffer& buffer) {
    if (!readField(buffer, id)) {
        return foundation::unexpected("empty packet");
    }
    return {};
}

void Packet::encode(ByteBuffer&) const { foundation::fatalFault("this packet has no encoder"); }

bool OfflinePacket::hasValidMagic() const { return std::ranges::equal(magic, MAGIC); }

bool OfflinePacket::readMagic(ByteBuffer& buffer) {
    auto bytes = buffer.readBytes(MAGIC.size());
    if (bytes) {
        magic = std::move(*bytes);
    }
    return bytes.has_value();
}

void OfflinePacket::writeMagic(ByteBuffer& buffer) { buffer.writeBytes(MAGIC); }

}  // namespace ferrylink::raknet
