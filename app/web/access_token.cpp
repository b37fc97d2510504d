#include "app/web/access_token.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <stdexcept>

namespace ferrylink::app {

std::string makeAccessToken() {
    std::array<uint8_t, 16> bytes{};
    size_t filled = 0;
    while (filled < bytes.size()) {
        ssize_t got = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::runtime_error("the system's random source failed");
        }
        filled += static_cast<size_t>(got);
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string token;
    for (uint8_t byte : bytes) {
        token += digits[byte >> 4];
        token += digits[byte & 0x0f];
    }
    return token;
}

bool isAccessTokenText(std::string_view text) {
    return text.size() == 32 &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

bool sameAccessToken(std::string_view given, std::string_view expected) {
    if (given.size() != expected.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i] ^ expected[i]);
    }
    return difference == 0;
}

bool isLoopbackHost(std::string_view host) {
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    std::string text(host);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    if (text == "localhost") {
        return true;
    }
    in_addr v4{};
    if (::inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        return (ntohl(v4.s_addr) >> 24) == 127;
    }
    in6_addr v6{};
    if (::inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
        return IN6_IS_ADDR_LOOPBACK(&v6);
    }
    return false;
}

std::string_view hostOfHostHeader(std::string_view header) {
    if (!header.empty() && header.front() == '[') {
        auto close = header.find(']');
        return close == std::string_view::npos ? header : header.substr(1, close - 1);
    }
    auto colon = header.rfind(':');
    // More than one colon without brackets is no host:port; leave it whole.
    if (colon != std::string_view::npos && header.find(':') == colon) {
        return header.substr(0, colon);
    }
    return header;
}

}  // namespace ferrylink::app
