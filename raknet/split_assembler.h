#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include "foundation/byte_buffer.h"
#include "foundation/expected.h"
#include "raknet/packets/encapsulated_packet.h"

namespace ferrylink::raknet {

// Bytes of fragments held by all the assemblers of one Listener, against a
// limit for all of them together. Loop thread only.
struct FragmentMemory {
    // Enough for a thousand consoles sending their logins at once; far more
    // than all of them hold at any one time, since a set leaves as soon as
    // it is complete.
    static constexpr size_t DEFAULT_LIMIT = 64u << 20;

    size_t held = 0;
    size_t limit = DEFAULT_LIMIT;
};

// Reassembly of the payloads a peer splits into fragments: a set is complete
// when it holds as many fragments as the latest one announces, and its
// payload is the fragments in the order of their index.
//
// Limits, beyond each of which the peer is to be dropped. The largest payload
// a real client splits is its login (its certificate chain and its skin), a
// few hundred KiB at most; a batch may inflate to no more than 4 MiB, so no
// payload beyond that can be of use. At the smallest MTU a fragment carries
// some 500 bytes, so 4 MiB takes about 8,400 of them. Clients send one split
// payload at a time, a few at most. A fragment costs its bytes and the
// bookkeeping around them, which is what is charged: one set of the largest
// size fits, and tiny fragments can't hold more memory than that.
//
// A fragment's size needs no limit of its own: it is copied out of a datagram
// of at most 2 KiB as it arrives (a slice would keep the whole read buffer
// alive for what may be a single byte).
//
// Loop thread only, like the connection that owns it.
class SplitAssembler {
public:
    static constexpr size_t MAX_PAYLOAD_BYTES = 4u << 20;
    static constexpr int32_t MAX_SPLIT_COUNT = 8192;
    static constexpr size_t MAX_CONCURRENT_SETS = 8;
    // Table node, buffer and its store, as the allocator sees them.
    static constexpr size_t FRAGMENT_OVERHEAD = 160;
    static constexpr size_t MAX_HELD_BYTES = MAX_PAYLOAD_BYTES + MAX_SPLIT_COUNT * FRAGMENT_OVERHEAD;

    explicit SplitAssembler(std::shared_ptr<FragmentMemory> memory = std::make_shared<FragmentMemory>());
    ~SplitAssembler();
    SplitAssembler(const SplitAssembler&) = delete;
    SplitAssembler& operator=(const SplitAssembler&) = delete;

    // Adds one fragment: gives the whole payload when its set is complete,
    // nothing while it isn't, or the reason the fragment breaks a limit. A
    // repeated index replaces the earlier fragment.
    foundation::Expected<std::optional<foundation::ByteBuffer>> add(const EncapsulatedPacket& fragment);

    size_t sets() const { return sets_.size(); }
    // Bytes charged for the fragments held, bookkeeping included.
    size_t heldBytes() const { return heldBytes_; }

private:
    struct Set {
        std::unordered_map<int32_t, foundation::ByteBuffer> fragments;
        size_t payloadBytes = 0;
    };

    static size_t charge(size_t payloadBytes) { return payloadBytes + FRAGMENT_OVERHEAD; }
    void hold(size_t charged);
    void release(size_t charged);

    std::unordered_map<int32_t, Set> sets_;
    size_t heldBytes_ = 0;
    std::shared_ptr<FragmentMemory> memory_;
};

}  // namespace ferrylink::raknet
