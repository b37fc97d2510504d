#include "foundation/codecs.h"

#include <limits>

#include "foundation/byte_backpacker.h"
#include "foundation/fatal.h"

namespace ferrylink::foundation {

void writeVarInt(ByteBuffer& buffer, uint64_t value) {
    while ((value & 0x7F) != 0) {
        buffer.writeInteger(static_cast<uint8_t>((value & 0x7F) | 0x80));
        value >>= 7;
    }
    buffer.writeInteger(static_cast<uint8_t>(value & 0xFF));
}

std::optional<uint64_t> readVarInt(ByteBuffer& buffer) {
    uint64_t result = 0;
    for (int shift = 0; shift <= 56; shift += 7) {
        auto byte = buffer.readInteger<uint8_t>();
        if (!byte) {
            return std::nullopt;
        }
        result |= static_cast<uint64_t>(*byte & 0x7F) << shift;
        if ((*byte & 0x80) == 0) {
            return result;
        }
    }
    auto tenth = buffer.readInteger<uint8_t>();
    if (!tenth) {
        return std::nullopt;
    }
    return result | (static_cast<uint64_t>(*tenth & 0x01) << 63);
}

void writeSignedVarInt(ByteBuffer& buffer, int32_t value) {
    uint32_t zigzag = (static_cast<uint32_t>(value) << 1) ^ (value < 0 ? 0xFFFFFFFFu : 0u);
    writeVarInt(buffer, zigzag);
}

void writeSignedVarLong(ByteBuffer& buffer, int64_t value) {
    uint64_t zigzag = (static_cast<uint64_t>(value) << 1) ^ (value < 0 ? ~uint64_t{0} : uint64_t{0});
    writeVarInt(buffer, zigzag);
}

std::optional<int32_t> readSignedVarInt(ByteBuffer& buffer) {
    auto raw = readVarInt(buffer);
    if (!raw) {
        return std::nullopt;
    }
    auto x = static_cast<uint32_t>(*raw);
    return static_cast<int32_t>((x >> 1) ^ (0u - (x & 1u)));
}

void writeFloat(ByteBuffer& buffer, float value) {
    buffer.writeBytes(ByteBackpacker::pack(value, ByteOrder::littleEndian));
}

std::optional<float> readFloat(ByteBuffer& buffer) {
    auto bytes = buffer.readBytes(4);
    if (!bytes) {
        return std::nullopt;
    }
    return ByteBackpacker::unpack<float>(*bytes, ByteOrder::littleEndian);
}

void writeVarString(ByteBuffer& buffer, std::string_view text) {
    if (text.size() > std::numeric_limits<uint32_t>::max()) {
        fatalFault();
    }
    writeVarInt(buffer, text.size());
    buffer.writeBytes(text);
}

std::optional<std::string> readVarString(ByteBuffer& buffer) {
    auto length = readVarInt(buffer);
    if (!length || *length > buffer.readableBytes()) {
        return std::nullopt;
    }
    auto count = static_cast<uint32_t>(*length);
    auto view = buffer.readableView().first(count);
    std::string text = repairUtf8(std::string_view(reinterpret_cast<const char*>(view.data()), view.size()));
    buffer.moveReaderIndexForwardBy(count);
    return text;
}

std::string repairUtf8(std::string_view bytes) {
    static constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string out;
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        auto lead = static_cast<uint8_t>(bytes[i]);
        size_t length = 0;
        uint32_t minimum = 0;
        if (lead < 0x80) {
            out.push_back(static_cast<char>(lead));
            ++i;
            continue;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            minimum = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            minimum = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            minimum = 0x10000;
        }
        // Take the longest valid prefix of a sequence; a broken one becomes
        // one replacement character, as decoders in the wild do it.
        size_t taken = 1;
        bool valid = length != 0;
        uint32_t codePoint = length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        for (; valid && taken < length; ++taken) {
            if (i + taken >= bytes.size()) {
                valid = false;
                break;
            }
            auto next = static_cast<uint8_t>(bytes[i + taken]);
            if ((next & 0xC0) != 0x80) {
                valid = false;
                break;
            }
            codePoint = (codePoint << 6) | (next & 0x3F);
            if (taken == 1) {
                // Reject overlong forms, surrogates and values past U+10FFFF early.
                bool badSecond = (lead == 0xE0 && next < 0xA0) || (lead == 0xED && next > 0x9F) ||
                                 (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next > 0x8F);
                if (badSecond) {
                    valid = false;
                    break;
                }
            }
        }
        if (valid && codePoint >= minimum) {
            out.append(bytes.substr(i, length));
            i += length;
        } else {
            out.append(replacement);
            i += std::max<size_t>(taken, 1);
        }
    }
    return out;
}

}  // namespace ferrylink::foundation
