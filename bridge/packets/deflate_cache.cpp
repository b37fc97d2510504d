#include "bridge/packets/deflate_cache.h"

#include <algorithm>

#include "bridge/packets/raw_deflate.h"

namespace ferrylink::bridge {

DeflateCache& DeflateCache::forThisThread() {
    static thread_local DeflateCache cache;
    return cache;
}

std::shared_ptr<const std::vector<uint8_t>> DeflateCache::deflate(std::span<const uint8_t> input) {
    const std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
    if (auto found = entries_.find(bytes); found != entries_.end()) {
        found->second.lastUse = ++uses_;
        return found->second.deflated;
    }
    auto made = deflateRaw(input);
    if (!made) {
        return nullptr;
    }
    auto deflated = std::make_shared<const std::vector<uint8_t>>(std::move(*made));
    const size_t cost = bytes.size() + deflated->size();
    if (cost > budget_ / 4) {
        return deflated;
    }
    makeRoom(cost);
    held_ += cost;
    entries_.emplace(std::string(bytes), Entry{deflated, ++uses_});
    return deflated;
}

void DeflateCache::clear() {
    std::unordered_map<std::string, Entry, Hash, std::equal_to<>>().swap(entries_);
    held_ = 0;
}

void DeflateCache::makeRoom(size_t needed) {
    while (held_ + needed > budget_ && !entries_.empty()) {
        auto oldest = std::min_element(entries_.begin(), entries_.end(), [](const auto& lhs, const auto& rhs) {
            return lhs.second.lastUse < rhs.second.lastUse;
        });
        held_ -= oldest->first.size() + oldest->second.deflated->size();
        entries_.erase(oldest);
    }
}

}  // namespace ferrylink::bridge
