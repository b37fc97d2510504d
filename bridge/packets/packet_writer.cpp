#include "bridge/packets/packet_writer.h"

#include <limits>

#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

void PacketWriter::varint(uint64_t value) {
    if (varInts_ == VarInts::protocolWriter) {
        foundation::writeVarInt(buffer_, value);
        return;
    }
    while (value >= 0x80) {
        buffer_.writeInteger(static_cast<uint8_t>((value & 0x7F) | 0x80));
        value >>= 7;
    }
    buffer_.writeInteger(static_cast<uint8_t>(value));
}

void PacketWriter::zigzag32(int32_t value) {
    varint((static_cast<uint32_t>(value) << 1) ^ (value < 0 ? 0xFFFFFFFFu : 0u));
}

void PacketWriter::zigzag64(int64_t value) {
    varint((static_cast<uint64_t>(value) << 1) ^ (value < 0 ? ~uint64_t{0} : uint64_t{0}));
}

void PacketWriter::lf32(float value) { foundation::writeFloat(buffer_, value); }

void PacketWriter::string(std::string_view text) {
    if (text.size() > std::numeric_limits<uint32_t>::max()) {
        foundation::fatalFault();
    }
    varint(text.size());
    buffer_.writeBytes(text);
}

}  // namespace ferrylink::bridge
