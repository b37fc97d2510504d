#include "resources/resgen/network_tag_writer.h"

#include <bit>
#include <limits>
#include <stdexcept>
#include <utility>

namespace ferrylink::resources {

void NetworkTagWriter::beginCompound(std::string_view name) {
    writeHeader(TagType::Compound, name);
    ++openCompounds_;
}

void NetworkTagWriter::beginCompoundElement() {
    ++openCompounds_;
}

void NetworkTagWriter::endCompound() {
    if (openCompounds_ == 0) {
        throw std::logic_error("endCompound without an open compound");
    }
    bytes_.push_back(static_cast<std::uint8_t>(TagType::End));
    --openCompounds_;
}

void NetworkTagWriter::beginList(std::string_view name, TagType elementType, std::int32_t count) {
    if (count < 0) {
        throw std::invalid_argument("negative list length");
    }
    writeHeader(TagType::List, name);
    bytes_.push_back(static_cast<std::uint8_t>(elementType));
    writeZigZagVarInt(count);
}

void NetworkTagWriter::writeByte(std::string_view name, std::int8_t value) {
    writeHeader(TagType::Byte, name);
    bytes_.push_back(static_cast<std::uint8_t>(value));
}

void NetworkTagWriter::writeShort(std::string_view name, std::int16_t value) {
    writeHeader(TagType::Short, name);
    const auto bits = static_cast<std::uint16_t>(value);
    bytes_.push_back(static_cast<std::uint8_t>(bits & 0xFF));
    bytes_.push_back(static_cast<std::uint8_t>(bits >> 8));
}

void NetworkTagWriter::writeInt(std::string_view name, std::int32_t value) {
    writeHeader(TagType::Int, name);
    writeZigZagVarInt(value);
}

void NetworkTagWriter::writeFloat(std::string_view name, float value) {
    writeHeader(TagType::Float, name);
    const auto bits = std::bit_cast<std::uint32_t>(value);
    for (int shift = 0; shift < 32; shift += 8) {
        bytes_.push_back(static_cast<std::uint8_t>((bits >> shift) & 0xFF));
    }
}

void NetworkTagWriter::writeString(std::string_view name, std::string_view value) {
    writeHeader(TagType::String, name);
    writeStringPayload(value);
}

void NetworkTagWriter::writeStringElement(std::string_view value) {
    writeStringPayload(value);
}

std::vector<std::uint8_t> NetworkTagWriter::take() {
    if (openCompounds_ != 0) {
        throw std::logic_error("tag output taken with a compound still open");
    }
    return std::exchange(bytes_, {});
}

void NetworkTagWriter::writeHeader(TagType type, std::string_view name) {
    bytes_.push_back(static_cast<std::uint8_t>(type));
    writeStringPayload(name);
}

void NetworkTagWriter::writeUnsignedVarInt(std::uint64_t value) {
    while (value >= 0x80) {
        bytes_.push_back(static_cast<std::uint8_t>((value & 0x7F) | 0x80));
        value >>= 7;
    }
    bytes_.push_back(static_cast<std::uint8_t>(value));
}

void NetworkTagWriter::writeZigZagVarInt(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    const std::uint32_t sign = value < 0 ? 0xFFFFFFFFu : 0u;
    writeUnsignedVarInt((bits << 1) ^ sign);
}

void NetworkTagWriter::writeStringPayload(std::string_view value) {
    if (value.size() > std::numeric_limits<std::int32_t>::max()) {
        throw std::length_error("string too long for a tag");
    }
    writeUnsignedVarInt(value.size());
    bytes_.insert(bytes_.end(), value.begin(), value.end());
}

}  // namespace ferrylink::resources
