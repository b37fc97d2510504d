#pragma once

#include <cstdint>
#include <set>
#include <unordered_map>
#include <vector>

#include "raknet/packets/acknowledge_packet.h"
#include "raknet/packets/datagram.h"

namespace ferrylink::raknet {

// The datagrams sent to a peer and not yet acknowledged, by the sequence
// number they last went out under, and what the peer may have resent.
//
// Every datagram is kept, also one of unreliable frames only, until a number
// it went out under is acknowledged. A resend, on the peer's NACK or because
// time has passed, sends the same frames in a datagram with a new number.
//
// An ACK or a NACK costs time in proportion to the datagrams it names that
// are held, never to the width of its ranges. Resends are paid from a credit
// that grows with every byte the peer sends, so that no peer, or anyone
// forging its address, can make us send more than a small multiple of what
// it sent; and a NACK resends a datagram at most once per tick.
//
// Loop thread only, like the connection that owns it.
class ResendTable {
public:
    // Credit earned per byte received from the peer, and the most it can save up.
    static constexpr int64_t CREDIT_PER_BYTE = 4;
    static constexpr int64_t MAX_CREDIT = 256 * 1024;

    // Keeps `datagram` under its number, replacing what was kept under it.
    void store(Datagram datagram, uint64_t resentInTick = 0);
    bool contains(int32_t number) const { return sent_.contains(number); }
    const Datagram* find(int32_t number) const;
    void erase(int32_t number);

    // Forgets every held datagram that `ack` names.
    void acknowledge(const AcknowledgePacket& ack);
    // The held datagrams `nack` names, in the order it names them, that may
    // go out again now: not resent for a NACK in `tick` already, and paid
    // for from the credit, which they are taken off.
    std::vector<int32_t> nackedForResend(const AcknowledgePacket& nack, uint64_t tick);
    // The numbers of the held datagrams, in the table's own iteration order,
    // which decides the order of resends by time.
    std::vector<int32_t> numbers() const;
    // Takes the cost of a resend by time off the credit; false when the
    // credit doesn't cover it.
    bool pay(const Datagram& datagram);
    // What the peer's datagram of `bytes` bytes earns.
    void earn(size_t bytes);

    bool empty() const { return sent_.empty(); }
    size_t size() const { return sent_.size(); }
    uint64_t resentInTick(int32_t number) const;

private:
    struct Sent {
        Datagram datagram;
        // The tick of the last resend for a NACK; 0 for none.
        uint64_t resentInTick = 0;
    };

    // Gives each held number that `packet` names to `visit`, once.
    template <typename Visit>
    void forEachHeld(const AcknowledgePacket& packet, Visit visit);

    // Walked in its own iteration order on resends by time.
    std::unordered_map<int32_t, Sent> sent_;
    // The same numbers in order, to find those an ACK or NACK names.
    std::set<int32_t> ordered_;
    int64_t credit_ = 0;
};

}  // namespace ferrylink::raknet
