#include "bridge/packets/network_tag.h"

#include "foundation/codecs.h"

namespace ferrylink::bridge {

namespace {
constexpr uint8_t compoundTag = 0x0A;
constexpr uint8_t endTag = 0x00;
}  // namespace

void writeEmptyCompoundTag(foundation::ByteBuffer& buffer) {
    buffer.writeInteger(compoundTag);
    foundation::writeVarString(buffer, "");
    buffer.writeInteger(endTag);
}

}  // namespace ferrylink::bridge
