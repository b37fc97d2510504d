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

bool OfflinePacket::hasValidMagic() const { return magic == MAGIC; }

bool OfflinePacket::readMagic(ByteBuffer& buffer) {
    auto bytes = buffer.readableView();
    if (bytes.size() < MAGIC.size()) {
        return false;
    }
    magic.emplace();
    std::copy_n(bytes.begin(), MAGIC.size(), magic->begin());
    buffer.moveReaderIndexForwardBy(MAGIC.size());
    return true;
}

void OfflinePacket::writeMagic(ByteBuffer& buffer) { buffer.writeBytes(MAGIC); }

}  // namespace ferrylink::raknet
