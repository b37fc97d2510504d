#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ferrylink::foundation {

// Text from a peer (a player's name, a token, a reason) made safe for a
// console line: invalid UTF-8 repaired, every control character, C0, DEL and
// C1, written as an escape ("\n", "\x1B", "\u009B"), and anything beyond
// `limit` characters cut and marked with "…". A peer can't start a line of
// its own or drive the terminal.
std::string printable(std::string_view peerText, size_t limit = 160);

}  // namespace ferrylink::foundation
