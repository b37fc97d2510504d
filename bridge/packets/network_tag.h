#pragma once

#include "foundation/byte_buffer.h"

namespace ferrylink::bridge {

// Writes 0A 00 00: the network form of a tag compound with an empty name and
// no content (type byte, empty name through the var-int writer, end tag).
void writeEmptyCompoundTag(foundation::ByteBuffer& buffer);

}  // namespace ferrylink::bridge
