#include "network_tag_reader.h"

#include <bit>
#include <utility>

namespace ferrylink::resources {
namespace {

// Nesting deeper than this is taken for hostile input rather than followed.
constexpr int kMaxDepth = 512;

class Reader {
public:
    Reader(std::span<const std::uint8_t> bytes, std::size_t offset) : bytes_(bytes), offset_(offset) {}

    std::size_t offset() const { return offset_; }

    NamedTag namedTag() {
        NamedTag named;
        named.tag.type = tagType();
        if (named.tag.type == TagType::End) {
            fail("a named tag cannot be an end tag");
        }
        named.name = string();
        payload(named.tag, 0);
        return named;
    }

private:
    [[noreturn]] void fail(const std::string& message) const {
        throw NetworkTagError("at byte " + std::to_string(offset_) + ": " + message);
    }

    std::uint8_t byte() {
        if (offset_ >= bytes_.size()) {
            fail("unexpected end of input");
        }
        return bytes_[offset_++];
    }

    std::uint64_t littleEndian(int width) {
        std::uint64_t value = 0;
        for (int i = 0; i < width; ++i) {
            value |= static_cast<std::uint64_t>(byte()) << (8 * i);
        }
        return value;
    }

    std::uint64_t unsignedVarInt(int maxBytes) {
        std::uint64_t value = 0;
        for (int i = 0; i < maxBytes; ++i) {
            const std::uint8_t next = byte();
            value |= static_cast<std::uint64_t>(next & 0x7F) << (7 * i);
            if ((next & 0x80) == 0) {
                return value;
            }
        }
        fail("var-int longer than " + std::to_string(maxBytes) + " bytes");
    }

    std::int32_t zigZagVarInt() {
        const auto raw = static_cast<std::uint32_t>(unsignedVarInt(5));
        return static_cast<std::int32_t>((raw >> 1) ^ (0u - (raw & 1u)));
    }

    std::int64_t zigZagVarLong() {
        const std::uint64_t raw = unsignedVarInt(10);
        return static_cast<std::int64_t>((raw >> 1) ^ (0ull - (raw & 1ull)));
    }

    std::size_t length() {
        const std::int32_t count = zigZagVarInt();
        if (count < 0) {
            fail("negative length " + std::to_string(count));
        }
        return static_cast<std::size_t>(count);
    }

    std::string string() {
        const std::uint64_t size = unsignedVarInt(5);
        if (size > bytes_.size() - offset_) {
            fail("string of " + std::to_string(size) + " bytes runs past the end");
        }
        std::string text(reinterpret_cast<const char*>(bytes_.data() + offset_), static_cast<std::size_t>(size));
        offset_ += static_cast<std::size_t>(size);
        return text;
    }

    TagType tagType() {
        const std::uint8_t type = byte();
        if (type > static_cast<std::uint8_t>(TagType::LongArray)) {
            --offset_;
            fail("unknown tag type " + std::to_string(type));
        }
        return static_cast<TagType>(type);
    }

    // Every element of a list or array is at least one byte long, so a count
    // beyond the bytes left can be refused before anything is allocated.
    std::size_t count() {
        const std::size_t n = length();
        if (n > bytes_.size() - offset_) {
            fail("count " + std::to_string(n) + " exceeds the bytes left");
        }
        return n;
    }

    void payload(Tag& tag, int depth) {
        if (depth > kMaxDepth) {
            fail("tags nested too deeply");
        }
        switch (tag.type) {
            case TagType::End:
                fail("end tag where a value was expected");
            case TagType::Byte:
                tag.value = static_cast<std::int8_t>(byte());
                break;
            case TagType::Short:
                tag.value = static_cast<std::int16_t>(littleEndian(2));
                break;
            case TagType::Int:
                tag.value = zigZagVarInt();
                break;
            case TagType::Long:
                tag.value = zigZagVarLong();
                break;
            case TagType::Float:
                tag.value = std::bit_cast<float>(static_cast<std::uint32_t>(littleEndian(4)));
                break;
            case TagType::Double:
                tag.value = std::bit_cast<double>(littleEndian(8));
                break;
            case TagType::ByteArray: {
                std::vector<std::int8_t> values(count());
                for (auto& value : values) {
                    value = static_cast<std::int8_t>(byte());
                }
                tag.value = std::move(values);
                break;
            }
            case TagType::String:
                tag.value = string();
                break;
            case TagType::List: {
                TagList list;
                list.elementType = tagType();
                const std::size_t n = count();
                if (n > 0 && list.elementType == TagType::End) {
                    fail("non-empty list of end tags");
                }
                list.items.resize(n);
                for (auto& item : list.items) {
                    item.type = list.elementType;
                    payload(item, depth + 1);
                }
                tag.value = std::move(list);
                break;
            }
            case TagType::Compound: {
                TagCompound compound;
                while (true) {
                    NamedTag entry;
                    entry.tag.type = tagType();
                    if (entry.tag.type == TagType::End) {
                        break;
                    }
                    entry.name = string();
                    payload(entry.tag, depth + 1);
                    compound.entries.push_back(std::move(entry));
                }
                tag.value = std::move(compound);
                break;
            }
            case TagType::IntArray: {
                std::vector<std::int32_t> values(count());
                for (auto& value : values) {
                    value = zigZagVarInt();
                }
                tag.value = std::move(values);
                break;
            }
            case TagType::LongArray: {
                std::vector<std::int64_t> values(count());
                for (auto& value : values) {
                    value = zigZagVarLong();
                }
                tag.value = std::move(values);
                break;
            }
        }
    }

    std::span<const std::uint8_t> bytes_;
    std::size_t offset_;
};

const char* typeName(TagType type) {
    static constexpr const char* names[] = {"end",    "byte",   "short", "int",      "long",      "float",     "double",
                                            "byte[]", "string", "list",  "compound", "int[]",     "long[]"};
    return names[static_cast<std::size_t>(type)];
}

template <typename Value>
const Value& expect(const Tag& tag, TagType type) {
    if (tag.type != type) {
        throw NetworkTagError(std::string("expected a ") + typeName(type) + " tag, found a " + typeName(tag.type));
    }
    return std::get<Value>(tag.value);
}

}  // namespace

std::int8_t Tag::asByte() const { return expect<std::int8_t>(*this, TagType::Byte); }
std::int16_t Tag::asShort() const { return expect<std::int16_t>(*this, TagType::Short); }
std::int32_t Tag::asInt() const { return expect<std::int32_t>(*this, TagType::Int); }
float Tag::asFloat() const { return expect<float>(*this, TagType::Float); }
const std::string& Tag::asString() const { return expect<std::string>(*this, TagType::String); }
const TagList& Tag::asList() const { return expect<TagList>(*this, TagType::List); }
const TagCompound& Tag::asCompound() const { return expect<TagCompound>(*this, TagType::Compound); }

const Tag* Tag::find(std::string_view name) const {
    for (const auto& entry : asCompound().entries) {
        if (entry.name == name) {
            return &entry.tag;
        }
    }
    return nullptr;
}

const Tag& Tag::at(std::string_view name) const {
    if (const Tag* tag = find(name)) {
        return *tag;
    }
    throw NetworkTagError("compound has no entry \"" + std::string(name) + "\"");
}

NamedTag readNetworkTag(std::span<const std::uint8_t> bytes, std::size_t& offset) {
    Reader reader(bytes, offset);
    NamedTag tag = reader.namedTag();
    offset = reader.offset();
    return tag;
}

NamedTag readWholeNetworkTag(std::span<const std::uint8_t> bytes) {
    std::size_t offset = 0;
    NamedTag tag = readNetworkTag(bytes, offset);
    if (offset != bytes.size()) {
        throw NetworkTagError(std::to_string(bytes.size() - offset) + " trailing bytes after the root tag");
    }
    return tag;
}

}  // namespace ferrylink::resources
