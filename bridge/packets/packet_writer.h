#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "foundation/byte_buffer.h"

namespace ferrylink::bridge {

// Writes the game protocol's field types into a buffer, one call a field, so
// that a packet's encode() reads like its table of fields. The names are the
// protocol's own: `li32` little-endian, `i32` big-endian, `varint` unsigned
// base-128, `zigzag32` signed.
//
// Var-ints go through the protocol writer of foundation/codecs.h, with its
// loop rule, unless the writer is made with VarInts::minimal: the plain
// shortest form that game clients write, which the simulated console uses.
class PacketWriter {
public:
    enum class VarInts { protocolWriter, minimal };

    explicit PacketWriter(foundation::ByteBuffer& buffer, VarInts varInts = VarInts::protocolWriter)
        : buffer_(buffer), varInts_(varInts) {}

    void varint(uint64_t value);
    void zigzag32(int32_t value);
    void zigzag64(int64_t value);
    void boolean(bool value) { u8(value ? 1 : 0); }
    void u8(uint8_t value) { buffer_.writeInteger(value); }
    void li16(int16_t value) { buffer_.writeInteger(value, foundation::Endianness::little); }
    void lu16(uint16_t value) { buffer_.writeInteger(value, foundation::Endianness::little); }
    void li32(int32_t value) { buffer_.writeInteger(value, foundation::Endianness::little); }
    void i32(int32_t value) { buffer_.writeInteger(value, foundation::Endianness::big); }
    void li64(int64_t value) { buffer_.writeInteger(value, foundation::Endianness::little); }
    void lu64(uint64_t value) { buffer_.writeInteger(value, foundation::Endianness::little); }
    void lf32(float value);
    // The UTF-8 byte count as a varint, then the bytes.
    void string(std::string_view text);
    // As they stand: no length in front.
    void bytes(std::span<const uint8_t> data) { buffer_.writeBytes(data); }

    foundation::ByteBuffer& buffer() { return buffer_; }

private:
    foundation::ByteBuffer& buffer_;
    VarInts varInts_;
};

}  // namespace ferrylink::bridge
