#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace ferrylink::resources {

// Type bytes of the named binary tag format.
enum class TagType : std::uint8_t {
    End = 0,
    Byte = 1,
    Short = 2,
    Int = 3,
    Long = 4,
    Float = 5,
    Double = 6,
    ByteArray = 7,
    String = 8,
    List = 9,
    Compound = 10,
    IntArray = 11,
    LongArray = 12,
};

// Writes tags in the little-endian network form that the game client parses:
// names and string lengths as unsigned var-ints, ints as zig-zag var-ints,
// list lengths as zig-zag var-ints, shorts and floats as plain little-endian.
//
// These var-ints are the ordinary base-128 form. The files written here are
// read by the client's own parser, so the game packets' var-int writer, with
// its rule of its own, must not be used for them.
//
// Named tags (`begin...`, `write...`) carry their type byte and name; the
// elements of a list carry neither (`...Element`).
class NetworkTagWriter {
public:
    void beginCompound(std::string_view name);
    void endCompound();
    void beginList(std::string_view name, TagType elementType, std::int32_t count);

    void writeByte(std::string_view name, std::int8_t value);
    void writeShort(std::string_view name, std::int16_t value);
    void writeInt(std::string_view name, std::int32_t value);
    void writeFloat(std::string_view name, float value);
    void writeString(std::string_view name, std::string_view value);

    // A compound inside a list: its entries, then `endCompound`.
    void beginCompoundElement();
    void writeStringElement(std::string_view value);

    // The bytes written so far. Every compound begun must have been ended.
    std::vector<std::uint8_t> take();

private:
    void writeHeader(TagType type, std::string_view name);
    void writeUnsignedVarInt(std::uint64_t value);
    void writeZigZagVarInt(std::int32_t value);
    void writeStringPayload(std::string_view value);

    std::vector<std::uint8_t> bytes_;
    int openCompounds_ = 0;
};

}  // namespace ferrylink::resources
