#pragma once

// A strict reader of the little-endian network tag form, for checking the
// generated files: it knows the tag types those files use and refuses input
// that is malformed, cut short or followed by trailing bytes.

#include <bit>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "resources/resgen/network_tag_writer.h"

namespace ferrylink::resources {

class NetworkTagError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Tag;
struct NamedTag;

struct TagList {
    TagType elementType = TagType::End;
    std::vector<Tag> items;
};

struct TagCompound {
    std::vector<NamedTag> entries;  // in the order they were read
};

struct Tag {
    TagType type = TagType::End;
    std::variant<std::monostate, std::int8_t, std::int16_t, std::int32_t, float, std::string, TagList, TagCompound>
        value;

    // Typed access; a tag of another type is a NetworkTagError.
    template <typename Value>
    const Value& as() const {
        if (const Value* held = std::get_if<Value>(&value)) {
            return *held;
        }
        throw NetworkTagError("tag of type " + std::to_string(static_cast<int>(type)) + " read as another type");
    }
    std::int8_t asByte() const { return as<std::int8_t>(); }
    std::int16_t asShort() const { return as<std::int16_t>(); }
    std::int32_t asInt() const { return as<std::int32_t>(); }
    float asFloat() const { return as<float>(); }
    const std::string& asString() const { return as<std::string>(); }
    const TagList& asList() const { return as<TagList>(); }
    const TagCompound& asCompound() const { return as<TagCompound>(); }

    // The entry of a compound by name; a missing one is a NetworkTagError.
    const Tag& at(std::string_view name) const;
};

struct NamedTag {
    std::string name;
    Tag tag;
};

inline const Tag& Tag::at(std::string_view name) const {
    for (const auto& entry : asCompound().entries) {
        if (entry.name == name) {
            return entry.tag;
        }
    }
    throw NetworkTagError("compound has no entry \"" + std::string(name) + "\"");
}

class NetworkTagReader {
public:
    explicit NetworkTagReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    // One named tag that takes up all of the bytes.
    NamedTag whole() {
        NamedTag root;
        root.tag.type = tagType();
        if (root.tag.type == TagType::End) {
            fail("end tag at the root");
        }
        root.name = string();
        payload(root.tag);
        if (offset_ != bytes_.size()) {
            fail("trailing bytes after the root tag");
        }
        return root;
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

    std::uint32_t littleEndian(int width) {
        std::uint32_t value = 0;
        for (int i = 0; i < width; ++i) {
            value |= std::uint32_t{byte()} << (8 * i);
        }
        return value;
    }

    std::uint32_t varInt() {
        std::uint32_t value = 0;
        for (int i = 0; i < 5; ++i) {
            const std::uint8_t next = byte();
            value |= std::uint32_t{next & 0x7Fu} << (7 * i);
            if ((next & 0x80) == 0) {
                return value;
            }
        }
        fail("var-int longer than 5 bytes");
    }

    std::int32_t zigZag() {
        const std::uint32_t raw = varInt();
        return static_cast<std::int32_t>((raw >> 1) ^ (0u - (raw & 1u)));
    }

    std::string string() {
        const std::size_t size = varInt();
        if (size > bytes_.size() - offset_) {
            fail("string of " + std::to_string(size) + " bytes runs past the end");
        }
        std::string text(reinterpret_cast<const char*>(bytes_.data() + offset_), size);
        offset_ += size;
        return text;
    }

    TagType tagType() {
        const std::uint8_t type = byte();
        if (type > static_cast<std::uint8_t>(TagType::Compound)) {
            fail("unknown tag type " + std::to_string(type));
        }
        return static_cast<TagType>(type);
    }

    void payload(Tag& tag) {
        switch (tag.type) {
            case TagType::Byte:
                tag.value = static_cast<std::int8_t>(byte());
                return;
            case TagType::Short:
                tag.value = static_cast<std::int16_t>(littleEndian(2));
                return;
            case TagType::Int:
                tag.value = zigZag();
                return;
            case TagType::Float:
                tag.value = std::bit_cast<float>(littleEndian(4));
                return;
            case TagType::String:
                tag.value = string();
                return;
            case TagType::List: {
                TagList list;
                list.elementType = tagType();
                const std::int32_t count = zigZag();
                // Every element takes at least a byte: a longer count is a lie.
                if (count < 0 || static_cast<std::size_t>(count) > bytes_.size() - offset_) {
                    fail("bad list length " + std::to_string(count));
                }
                list.items.resize(static_cast<std::size_t>(count));
                for (auto& item : list.items) {
                    item.type = list.elementType;
                    payload(item);
                }
                tag.value = std::move(list);
                return;
            }
            case TagType::Compound: {
                TagCompound compound;
                for (TagType type = tagType(); type != TagType::End; type = tagType()) {
                    NamedTag& entry = compound.entries.emplace_back();
                    entry.tag.type = type;
                    entry.name = string();
                    payload(entry.tag);
                }
                tag.value = std::move(compound);
                return;
            }
            default:
                fail("tag type " + std::to_string(static_cast<int>(tag.type)) + " has no place in these files");
        }
    }

    std::span<const std::uint8_t> bytes_;
    std::size_t offset_ = 0;
};

inline NamedTag readWholeNetworkTag(std::span<const std::uint8_t> bytes) { return NetworkTagReader(bytes).whole(); }

}  // namespace ferrylink::resources
