#include "raknet/split_assembler.h"

#include <algorithm>
#include <vector>

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::unexpected;

SplitAssembler::SplitAssembler(std::shared_ptr<FragmentMemory> memory) : memory_(std::move(memory)) {}

SplitAssembler::~SplitAssembler() { release(heldBytes_); }

void SplitAssembler::hold(size_t charged) {
    heldBytes_ += charged;
    memory_->held += charged;
}

void SplitAssembler::release(size_t charged) {
    heldBytes_ -= charged;
    memory_->held -= charged;
}

foundation::Expected<std::optional<ByteBuffer>> SplitAssembler::add(const EncapsulatedPacket& fragment) {
    const int32_t count = fragment.splitCount;
    if (count <= 0 || count > MAX_SPLIT_COUNT) {
        return unexpected("split count out of range");
    }
    if (fragment.splitIndex < 0 || fragment.splitIndex >= count) {
        return unexpected("split index out of range");
    }
    auto found = sets_.find(fragment.splitId);
    if (found == sets_.end()) {
        if (sets_.size() >= MAX_CONCURRENT_SETS) {
            return unexpected("too many split payloads at once");
        }
        found = sets_.emplace(fragment.splitId, Set{}).first;
    }
    Set& set = found->second;
    auto bytes = fragment.buffer ? fragment.buffer->readableView() : std::span<const uint8_t>();
    auto old = set.fragments.find(fragment.splitIndex);
    const size_t replaced = old == set.fragments.end() ? 0 : old->second.readableBytes();
    const size_t released = old == set.fragments.end() ? 0 : charge(replaced);
    if (set.payloadBytes - replaced + bytes.size() > MAX_PAYLOAD_BYTES) {
        return unexpected("split payload too large");
    }
    if (heldBytes_ - released + charge(bytes.size()) > MAX_HELD_BYTES) {
        return unexpected("too many fragments held");
    }
    if (memory_->held - released + charge(bytes.size()) > memory_->limit) {
        return unexpected("no room for more fragments");
    }
    release(released);
    hold(charge(bytes.size()));
    set.payloadBytes = set.payloadBytes - replaced + bytes.size();
    set.fragments.insert_or_assign(fragment.splitIndex, ByteBuffer(bytes));

    // The count of the fragment that came last decides: the set is complete
    // when it holds that many fragments.
    if (set.fragments.size() != static_cast<size_t>(count)) {
        return std::optional<ByteBuffer>();
    }
    std::vector<std::pair<int32_t, const ByteBuffer*>> ordered;
    ordered.reserve(set.fragments.size());
    for (const auto& [index, piece] : set.fragments) {
        ordered.emplace_back(index, &piece);
    }
    std::sort(ordered.begin(), ordered.end(), [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
    auto whole = ByteBuffer::withCapacity(static_cast<uint32_t>(set.payloadBytes));
    for (const auto& [index, piece] : ordered) {
        whole.writeBytes(piece->readableView());
    }
    release(set.payloadBytes + set.fragments.size() * FRAGMENT_OVERHEAD);
    sets_.erase(found);
    return std::optional<ByteBuffer>(std::move(whole));
}

}  // namespace ferrylink::raknet
