#pragma once

#include <string>
#include <string_view>

namespace ferrylink::app {

// UTF-8 to characters and back; invalid bytes read as U+FFFD.
std::u32string decodeUtf8(std::string_view text);
std::string encodeUtf8(std::u32string_view text);

// Lower case character by character, beyond ASCII too ("É" -> "é").
std::string lowercased(std::string_view text);

}  // namespace ferrylink::app
