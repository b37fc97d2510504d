#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ferrylink::bridge {

// Deflated batches by their content, so that what every console is sent alike
// (the resource-pack steps, biome definitions, entity identifiers, chunks, the
// hand-over) is compressed once, not once per console. Raw deflate of a fresh
// stream gives the same bytes for the same input, so a hit is exactly what
// deflateRaw would have made.
//
// Bounded by the bytes it holds; beyond them the least recently used batch
// goes, which is how the one-off batches (a start with its own world template
// id) leave again. One per thread, so that no lock is taken.
class DeflateCache {
public:
    static constexpr size_t DEFAULT_BUDGET = 4u << 20;

    explicit DeflateCache(size_t budget = DEFAULT_BUDGET) : budget_(budget) {}

    static DeflateCache& forThisThread();

    // deflateRaw(input), from the cache when it holds it: a hit hands out
    // the batch it holds, not a copy. Empty when deflating failed.
    std::shared_ptr<const std::vector<uint8_t>> deflate(std::span<const uint8_t> input);

    // Lets go of every batch, for when no console is left to send them to.
    void clear();

    // Bytes held, input and output of every batch together.
    size_t heldBytes() const { return held_; }
    size_t size() const { return entries_.size(); }

private:
    struct Entry {
        std::shared_ptr<const std::vector<uint8_t>> deflated;
        uint64_t lastUse = 0;
    };

    // Looks a batch up by a view of its bytes, without copying them.
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view bytes) const { return std::hash<std::string_view>{}(bytes); }
    };

    void makeRoom(size_t needed);

    std::unordered_map<std::string, Entry, Hash, std::equal_to<>> entries_;
    size_t budget_;
    size_t held_ = 0;
    uint64_t uses_ = 0;
};

}  // namespace ferrylink::bridge
