#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "resources/resgen/network_tag_writer.h"

namespace ferrylink::resources {

// Malformed or truncated input, with the offset at which it was found.
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

// A tag's value; which alternative is set follows from `type`.
struct Tag {
    TagType type = TagType::End;
    std::variant<std::monostate, std::int8_t, std::int16_t, std::int32_t, std::int64_t, float, double,
                 std::vector<std::int8_t>, std::string, TagList, TagCompound, std::vector<std::int32_t>,
                 std::vector<std::int64_t>>
        value;

    // Typed access; throws `NetworkTagError` when the tag is of another type.
    std::int8_t asByte() const;
    std::int16_t asShort() const;
    std::int32_t asInt() const;
    float asFloat() const;
    const std::string& asString() const;
    const TagList& asList() const;
    const TagCompound& asCompound() const;

    // The entry of a compound by name, or nullptr.
    const Tag* find(std::string_view name) const;
    // The same, throwing `NetworkTagError` when it is missing.
    const Tag& at(std::string_view name) const;
};

struct NamedTag {
    std::string name;
    Tag tag;
};

// Reads one named tag in the little-endian network form from `bytes` at
// `offset`, and moves `offset` past it.
NamedTag readNetworkTag(std::span<const std::uint8_t> bytes, std::size_t& offset);

// Reads one named tag that must take up all of `bytes`, with nothing after it.
NamedTag readWholeNetworkTag(std::span<const std::uint8_t> bytes);

}  // namespace ferrylink::resources
