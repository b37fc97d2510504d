#include "app/unicode_text.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>

namespace ferrylink::app {

namespace {
constexpr char32_t replacementCharacter = U'\uFFFD';
}  // namespace

std::u32string decodeUtf8(std::string_view text) {
    std::u32string result;
    result.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        auto lead = static_cast<unsigned char>(text[i]);
        int length = 0;
        char32_t value = 0;
        if (lead < 0x80) {
            result.push_back(lead);
            ++i;
            continue;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            value = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            value = lead & 0x0F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            value = lead & 0x07;
        } else {
            result.push_back(replacementCharacter);
            ++i;
            continue;
        }
        int taken = 1;
        while (taken < length && i + taken < text.size()) {
            auto next = static_cast<unsigned char>(text[i + taken]);
            if ((next & 0xC0) != 0x80) {
                break;
            }
            value = (value << 6) | (next & 0x3F);
            ++taken;
        }
        bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
        bool outOfRange = value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF);
        if (taken < length || overlong || outOfRange) {
            result.push_back(replacementCharacter);
            i += std::max(taken, 1);
            continue;
        }
        result.push_back(value);
        i += length;
    }
    return result;
}

std::string encodeUtf8(std::u32string_view text) {
    std::string result;
    result.reserve(text.size());
    for (char32_t c : text) {
        if (c < 0x80) {
            result.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            result.push_back(static_cast<char>(0xC0 | (c >> 6)));
            result.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            result.push_back(static_cast<char>(0xE0 | (c >> 12)));
            result.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            result.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            result.push_back(static_cast<char>(0xF0 | (c >> 18)));
            result.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            result.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            result.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return result;
}

std::string lowercased(std::string_view text) {
    // A locale of its own, so the process's locale settings play no part.
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    std::u32string characters = decodeUtf8(text);
    for (auto& c : characters) {
        if (c < 0x80) {
            if (c >= U'A' && c <= U'Z') {
                c = c - U'A' + U'a';
            }
        } else if (utf8 != static_cast<locale_t>(nullptr)) {
            c = static_cast<char32_t>(towlower_l(static_cast<wint_t>(c), utf8));
        }
    }
    return encodeUtf8(characters);
}

}  // namespace ferrylink::app
