#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ferrylink::resources::testing {

// "0A 00 00" -> {0x0A, 0x00, 0x00}; spaces are ignored.
inline std::vector<std::uint8_t> hexBytes(std::string_view hex) {
    std::vector<std::uint8_t> bytes;
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') {
            digits.push_back(c);
        }
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hex digits");
    }
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// {0x0A, 0x00} -> "0A 00", for readable failure messages.
inline std::string hexString(const std::vector<std::uint8_t>& bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const auto byte : bytes) {
        if (!text.empty()) {
            text.push_back(' ');
        }
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0F]);
    }
    return text;
}

inline std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace ferrylink::resources::testing
