#include "bridge/packets/web_token.h"

#include <array>
#include <vector>

namespace ferrylink::bridge {

namespace {

constexpr int invalidDigit = -1;

constexpr std::array<int, 256> base64UrlDigits() {
    std::array<int, 256> digits{};
    digits.fill(invalidDigit);
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    for (size_t i = 0; i < alphabet.size(); ++i) {
        digits[static_cast<uint8_t>(alphabet[i])] = static_cast<int>(i);
    }
    return digits;
}

std::vector<std::string> splitAtDots(const std::string& token) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (true) {
        size_t dot = token.find('.', start);
        parts.push_back(token.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos) {
            return parts;
        }
        start = dot + 1;
    }
}

foundation::Expected<nlohmann::json> decodePart(const std::string& part) {
    auto decoded = decodeBase64Url(part);
    if (!decoded) {
        return foundation::unexpected("Malformed jwt token, failed to decode base64Url value " + part);
    }
    auto value = nlohmann::json::parse(*decoded, nullptr, false);
    if (!value.is_object()) {
        return foundation::unexpected("Malformed jwt token, failed to parse JSON value from base64Url " + part);
    }
    return value;
}

}  // namespace

std::optional<std::string> decodeBase64Url(std::string_view text) {
    static constexpr auto digits = base64UrlDigits();
    size_t padding = 0;
    while (padding < 2 && !text.empty() && text.back() == '=') {
        text.remove_suffix(1);
        ++padding;
    }
    // Padding, when present, must make up a whole group of four.
    if (text.size() % 4 == 1 || (padding > 0 && (text.size() + padding) % 4 != 0)) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() * 3 / 4);
    uint32_t bits = 0;
    int bitCount = 0;
    for (char c : text) {
        int digit = digits[static_cast<uint8_t>(c)];
        if (digit == invalidDigit) {
            return std::nullopt;
        }
        bits = (bits << 6) | static_cast<uint32_t>(digit);
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes.push_back(static_cast<char>((bits >> bitCount) & 0xFF));
        }
    }
    return bytes;
}

std::string encodeBase64Url(std::string_view bytes) {
    static constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    uint32_t bits = 0;
    int count = 0;
    for (unsigned char byte : bytes) {
        bits = bits << 8 | byte;
        count += 8;
        while (count >= 6) {
            count -= 6;
            text += alphabet[(bits >> count) & 0x3F];
        }
    }
    if (count > 0) {
        text += alphabet[(bits << (6 - count)) & 0x3F];
    }
    return text;
}

foundation::Expected<WebToken> WebToken::decode(const std::string& token) {
    auto parts = splitAtDots(token);
    if (parts.size() != 3) {
        return foundation::unexpected("Malformed jwt token " + token + " has " + std::to_string(parts.size()) +
                                      " parts when it should have 3 parts");
    }
    auto header = decodePart(parts[0]);
    if (!header) {
        return foundation::unexpected(header.error());
    }
    auto body = decodePart(parts[1]);
    if (!body) {
        return foundation::unexpected(body.error());
    }
    return WebToken(std::move(*header), std::move(*body));
}

std::optional<std::string> WebToken::claimString(std::string_view name) const {
    auto member = body_.find(name);
    if (member == body_.end() || !member->is_string()) {
        return std::nullopt;
    }
    return member->get<std::string>();
}

}  // namespace ferrylink::bridge
