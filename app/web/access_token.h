#pragma once

#include <string>
#include <string_view>

namespace ferrylink::app {

// 128 bits of the system's random source as 32 lower-case hex digits.
std::string makeAccessToken();

// Whether `text` has the form of a token: 32 lower-case hex digits.
bool isAccessTokenText(std::string_view text);

// Compares in time that depends on the lengths only, so that a guesser
// learns nothing from how long a refusal takes.
bool sameAccessToken(std::string_view given, std::string_view expected);

// Whether a host names this machine's loopback: "localhost", an address of
// 127.0.0.0/8 or ::1 (brackets allowed).
bool isLoopbackHost(std::string_view host);

// The host part of a Host header: "[::1]:8080" gives "::1", "a:1" gives "a".
std::string_view hostOfHostHeader(std::string_view header);

}  // namespace ferrylink::app
