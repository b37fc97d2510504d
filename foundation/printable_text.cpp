#include "foundation/printable_text.h"

#include <cstdio>

#include "foundation/codecs.h"

namespace ferrylink::foundation {

namespace {

std::string escape(const char* format, unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::string printable(std::string_view peerText, size_t limit) {
    std::string text = repairUtf8(peerText);
    std::string out;
    size_t characters = 0;
    for (size_t i = 0; i < text.size();) {
        if (characters == limit) {
            return out + "…";
        }
        auto byte = static_cast<unsigned char>(text[i]);
        size_t length = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        if (byte == '\n') {
            out += "\\n";
        } else if (byte == '\r') {
            out += "\\r";
        } else if (byte == '\t') {
            out += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            out += escape("\\x%02X", byte);
        } else if (byte == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
            // U+0080 to U+009F: the C1 controls, which some terminals obey.
            out += escape("\\u%04X", static_cast<unsigned char>(text[i + 1]));
        } else {
            out.append(text, i, length);
        }
        i += length;
        ++characters;
    }
    return out;
}

}  // namespace ferrylink::foundation
