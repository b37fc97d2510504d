#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace ferrylink::raknet {

// The delivery kind of a frame. Exactly eight values exist; two are equal
// when their ids are.
class Reliability {
public:
    int32_t id;
    bool reliable;
    bool ordered;
    bool sequenced;
    bool withAckReceipt;
    // Header bytes the kind adds to a frame, as counted by EncapsulatedPacket::size.
    int32_t size;

    static const Reliability UNRELIABLE;
    static const Reliability UNRELIABLE_SEQUENCED;
    static const Reliability RELIABLE;
    static const Reliability RELIABLE_ORDERED;
    static const Reliability RELIABLE_SEQUENCED;
    static const Reliability UNRELIABLE_WITH_ACK_RECEIPT;
    static const Reliability RELIABLE_WITH_ACK_RECEIPT;
    static const Reliability RELIABLE_ORDERED_WITH_ACK_RECEIPT;

    // The kind with this id; nothing above 7 (or below 0).
    static std::optional<Reliability> fromId(int32_t id);

    friend constexpr bool operator==(const Reliability& lhs, const Reliability& rhs) { return lhs.id == rhs.id; }
};

inline constexpr Reliability Reliability::UNRELIABLE{0, false, false, false, false, 0};
inline constexpr Reliability Reliability::UNRELIABLE_SEQUENCED{1, false, false, true, false, 3};
inline constexpr Reliability Reliability::RELIABLE{2, true, false, false, false, 3};
inline constexpr Reliability Reliability::RELIABLE_ORDERED{3, true, true, false, false, 7};
inline constexpr Reliability Reliability::RELIABLE_SEQUENCED{4, true, false, true, false, 6};
inline constexpr Reliability Reliability::UNRELIABLE_WITH_ACK_RECEIPT{5, false, false, false, true, 0};
inline constexpr Reliability Reliability::RELIABLE_WITH_ACK_RECEIPT{6, true, false, false, true, 3};
inline constexpr Reliability Reliability::RELIABLE_ORDERED_WITH_ACK_RECEIPT{7, true, true, false, true, 7};

inline std::optional<Reliability> Reliability::fromId(int32_t id) {
    static constexpr std::array<Reliability, 8> all{
        UNRELIABLE, UNRELIABLE_SEQUENCED, RELIABLE, RELIABLE_ORDERED, RELIABLE_SEQUENCED,
        UNRELIABLE_WITH_ACK_RECEIPT, RELIABLE_WITH_ACK_RECEIPT, RELIABLE_ORDERED_WITH_ACK_RECEIPT,
    };
    if (id < 0 || id >= static_cast<int32_t>(all.size())) {
        return std::nullopt;
    }
    return all[static_cast<size_t>(id)];
}

// How soon a frame leaves. Only the value passed to the send operations
// counts; the field of a frame is informational.
enum class Priority : uint8_t { NORMAL = 0, IMMEDIATE = 1 };

}  // namespace ferrylink::raknet
