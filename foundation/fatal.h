#pragma once

#include <optional>
#include <string_view>
#include <utility>

namespace ferrylink::foundation {

// Ends the process at once. Malformed input from a peer, a broken invariant
// and a failed store all end here: nothing is told to the peer and no
// connection is closed first. Peer faults pass no text and log nothing; the
// fatal errors that carry a message have it written to standard error.
[[noreturn]] void fatalFault(std::string_view message = {});

// A read that the caller cannot do without: an empty result is a fatal fault.
template <typename T>
T forced(std::optional<T> value) {
    if (!value) {
        fatalFault();
    }
    return std::move(*value);
}

}  // namespace ferrylink::foundation
