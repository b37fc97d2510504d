#include "app/web/listen_address.h"

#include <charconv>

namespace ferrylink::app {

std::optional<ListenAddress> parseListenAddress(std::string_view text) {
    std::string_view host;
    std::string_view port;
    if (!text.empty() && text.front() == '[') {
        auto close = text.find(']');
        if (close == std::string_view::npos || close + 1 >= text.size() || text[close + 1] != ':') {
            return std::nullopt;
        }
        host = text.substr(1, close - 1);
        port = text.substr(close + 2);
        if (host.find(':') == std::string_view::npos) {
            return std::nullopt;
        }
    } else {
        auto colon = text.rfind(':');
        if (colon == std::string_view::npos || text.find(':') != colon) {
            return std::nullopt;
        }
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    if (host.empty() || port.empty()) {
        return std::nullopt;
    }
    int number = 0;
    auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (error != std::errc() || end != port.data() + port.size() || number < 0 || number > 65535) {
        return std::nullopt;
    }
    return ListenAddress{std::string(host), number};
}

std::string urlHost(std::string_view host) {
    if (host.find(':') != std::string_view::npos) {
        // GCC 12 at -O3 sees an overlapping copy in the string concatenation.
#pragma GCC diagnostic push
#if !defined(__clang__)  // a warning clang doesn't know
#pragma GCC diagnostic ignored "-Wrestrict"
#endif
        return "[" + std::string(host) + "]";
#pragma GCC diagnostic pop
    }
    return std::string(host);
}

}  // namespace ferrylink::app
