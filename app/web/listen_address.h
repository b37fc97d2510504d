#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ferrylink::app {

// Where the app's page is served: a host (name or address) and a TCP port,
// 0 letting the system choose.
struct ListenAddress {
    std::string host;
    int port = 0;

    bool operator==(const ListenAddress&) const = default;
};

// "HOST:PORT", with an IPv6 address in brackets ("[::]:8080"). Nothing for
// text of another form or a port outside 0-65535.
std::optional<ListenAddress> parseListenAddress(std::string_view text);

// The host as it stands in a URL: an IPv6 address gets brackets.
std::string urlHost(std::string_view host);

}  // namespace ferrylink::app
