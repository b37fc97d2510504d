#pragma once

#include "bridge/packets/data_packet.h"
#include "foundation/byte_buffer.h"

namespace ferrylink::testing {

inline foundation::ByteBuffer headerOf(bridge::DataPacket& packet) {
    foundation::ByteBuffer buffer;
    packet.encodeHeader(buffer);
    return buffer;
}

inline foundation::ByteBuffer bodyOf(bridge::DataPacket& packet) {
    foundation::ByteBuffer buffer;
    packet.encode(buffer);
    return buffer;
}

}  // namespace ferrylink::testing
