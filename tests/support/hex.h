#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/byte_buffer.h"

namespace ferrylink::testing {

// "82 00 FF" -> {0x82, 0x00, 0xFF}; spaces and line breaks are ignored, and
// "00*24" stands for 24 bytes of 00.
inline std::vector<uint8_t> bytesFromHex(std::string_view hex) {
    std::vector<uint8_t> bytes;
    int high = -1;
    for (size_t i = 0; i < hex.size(); ++i) {
        char c = hex[i];
        if (std::isspace(static_cast<unsigned char>(c))) {
            continue;
        }
        if (c == '*' && high < 0 && !bytes.empty()) {
            size_t count = 0;
            while (i + 1 < hex.size() && std::isdigit(static_cast<unsigned char>(hex[i + 1]))) {
                count = count * 10 + static_cast<size_t>(hex[++i] - '0');
            }
            bytes.insert(bytes.end(), count - 1, bytes.back());
            continue;
        }
        int value = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::toupper(c) - 'A' + 10;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    return bytes;
}

inline foundation::ByteBuffer bufferFromHex(std::string_view hex) { return foundation::ByteBuffer(bytesFromHex(hex)); }

inline std::string hexOf(std::span<const uint8_t> bytes) {
    std::string text;
    char piece[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(piece, sizeof(piece), i == 0 ? "%02X" : " %02X", bytes[i]);
        text += piece;
    }
    return text;
}

inline std::string hexOf(const foundation::ByteBuffer& buffer) { return hexOf(buffer.readableView()); }

// Compares the readable bytes with a hex string and prints both on failure.
inline ::testing::AssertionResult bytesEqual(const foundation::ByteBuffer& actual, std::string_view expectedHex) {
    std::string expected = hexOf(bytesFromHex(expectedHex));
    std::string got = hexOf(actual);
    if (got == expected) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "\n  expected: " << expected << "\n  actual:   " << got;
}

}  // namespace ferrylink::testing

#define EXPECT_BYTES(buffer, hex) EXPECT_TRUE(::ferrylink::testing::bytesEqual((buffer), (hex)))
#define ASSERT_BYTES(buffer, hex) ASSERT_TRUE(::ferrylink::testing::bytesEqual((buffer), (hex)))
