#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "foundation/socket_address.h"

namespace ferrylink::raknet {

// How many of the requests that open a connection (OpenConnectionRequest1
// and 2) one source address may send: a burst, then one every half second.
// The buckets live in a table of fixed size, so a request over the limit
// costs a hash and a look at eight slots, allocates nothing and gets neither
// a reply nor a line.
//
// A limit rather than a cookie: a cookie would need a field in
// OpenConnectionReply1 that the clients of this system neither know nor send
// back, while a limit leaves every byte of a join as it is. A console needs
// one request of each kind, a few more when its MTU probes or resends go
// unanswered, and those come half a second apart. The key is the whole
// address, port included, so the consoles behind one shared address each have
// their own bucket. A flood from a few addresses is cut to the rate; one that
// forges a new address for every datagram lands on a fresh bucket each time,
// and costs what the reply costs: the same slot keeps what the source's
// request 1 asked for, so that the Listener makes no connection until the
// request 2 of the same address comes.
//
// An address has a set of eight slots, picked by its hash and a seed of this
// table, so that nobody can aim many addresses at one set. A new source takes
// the slot of its set whose bucket is nearest to full; so a source that lost
// its slot only ever comes back to a full bucket, and a console is never
// turned away for an address it shares a set with. Loop thread only.
class RequestBudget {
public:
    static constexpr int64_t BURST = 8;
    static constexpr int64_t INTERVAL_MILLIS = 500;
    static constexpr size_t WAYS = 8;
    // 1024 sets: a thousand consoles that all ask at once are about one to a
    // set. That nine meet in one, so that the first of them loses its
    // request 1 before its request 2 comes and has to start again, happens to
    // about one such crowd in a thousand (with 512 sets, to one in ten).
    static constexpr int SET_BITS = 10;
    // How long a request 1 waits for its request 2: as long as a connection
    // that hears nothing lasts.
    static constexpr int64_t REQUEST_ONE_MILLIS = 4000;

    RequestBudget();

    // Whether `source` may send one more request at `now` (milliseconds);
    // a refusal is counted for takeExcess().
    bool allow(const foundation::SocketAddress& source, int64_t now);

    // The RakNet protocol of the request 1 that `source` sent at `now`.
    void rememberRequestOne(const foundation::SocketAddress& source, int32_t protocolVersion, int64_t now);
    // The protocol of `source`'s latest request 1, unless it is older than
    // REQUEST_ONE_MILLIS, was forgotten, or its slot went to another source.
    std::optional<int32_t> requestOneProtocol(const foundation::SocketAddress& source, int64_t now) const;
    void forgetRequestOne(const foundation::SocketAddress& source);

    struct Excess {
        uint64_t requests = 0;
        uint64_t sources = 0;
    };
    // The refusals since the last call, and from how many addresses.
    Excess takeExcess();

private:
    struct Slot {
        size_t source = 0;  // the address's hash
        // When the bucket is full again (a token bucket kept as one time).
        int64_t fullAt = 0;
        // The count that last had a refusal of this source in it.
        uint64_t refusedIn = 0;
        std::optional<int32_t> requestOneProtocol;
        int64_t requestOneAt = 0;
    };

    // The first of the WAYS slots where `source` may be.
    size_t setOf(size_t source) const;
    // Where the slot of `source` is, when it has one.
    std::optional<size_t> find(const foundation::SocketAddress& source) const;
    // The slot of `source`, taken for it when it has none.
    Slot& slotOf(const foundation::SocketAddress& source, int64_t now);

    const uint64_t seed_;
    std::array<Slot, WAYS << SET_BITS> slots_{};
    uint64_t count_ = 1;
    Excess excess_;
};

}  // namespace ferrylink::raknet
