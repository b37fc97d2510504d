#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

#include "foundation/fatal.h"

namespace ferrylink::foundation {

enum class ByteOrder { bigEndian, littleEndian };

// The byte order of the machine we run on, fixed for the process.
inline ByteOrder nativeByteOrder() {
    static const ByteOrder order = [] {
        const uint16_t probe = 1;
        uint8_t first = 0;
        std::memcpy(&first, &probe, 1);
        return first == 1 ? ByteOrder::littleEndian : ByteOrder::bigEndian;
    }();
    return order;
}

// Turns plain values into their bytes and back, reversing them whenever the
// asked order differs from the machine's.
class ByteBackpacker {
public:
    ByteBackpacker() = delete;

    template <typename T>
        requires std::is_trivially_copyable_v<T>
    static std::vector<uint8_t> pack(T value, ByteOrder byteOrder) {
        std::vector<uint8_t> bytes(sizeof(T));
        std::memcpy(bytes.data(), &value, sizeof(T));
        if (byteOrder != nativeByteOrder()) {
            std::reverse(bytes.begin(), bytes.end());
        }
        return bytes;
    }

    // `bytes` must hold at least the width of T.
    template <typename T>
        requires std::is_trivially_copyable_v<T>
    static T unpack(std::span<const uint8_t> bytes, ByteOrder byteOrder = nativeByteOrder()) {
        if (bytes.size() < sizeof(T)) {
            fatalFault();
        }
        std::vector<uint8_t> ordered(bytes.begin(), bytes.end());
        if (byteOrder != nativeByteOrder()) {
            std::reverse(ordered.begin(), ordered.end());
        }
        T value;
        std::memcpy(&value, ordered.data(), sizeof(T));
        return value;
    }
};

}  // namespace ferrylink::foundation
