#include "app/styles.h"

#include "app/unicode_text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace ferrylink::app {

namespace {

constexpr char32_t sectionSign = U'\u00A7';

// The characters from `from` up to `to`, with both ends clamped to the text.
std::u32string_view clampedSlice(std::u32string_view text, size_t from, size_t to) {
    to = std::min(to, text.size());
    if (from >= to) {
        return {};
    }
    return text.substr(from, to - from);
}

// The one or two characters at `at`: one only at the very end of the text.
std::u32string_view codeAt(std::u32string_view text, size_t at) { return clampedSlice(text, at, at + 2); }

constexpr double third = 1.0 / 3.0;
constexpr double twoThirds = 2.0 / 3.0;

Styles styleForCode(std::u32string_view code) {
    if (code == U"\u00A7k") return Styles::obfuscated;
    if (code == U"\u00A7l") return Styles::bold;
    if (code == U"\u00A7m") return Styles::strikethrough;
    if (code == U"\u00A7n") return Styles::underline;
    if (code == U"\u00A7o") return Styles::italic;
    return Styles::reset;
}

struct Piece {
    std::u32string_view text;
    Styles style;
};

}  // namespace

std::string_view styleName(Styles style) {
    switch (style) {
        case Styles::none: return "none";
        case Styles::obfuscated: return "obfuscated";
        case Styles::bold: return "bold";
        case Styles::strikethrough: return "strikethrough";
        case Styles::underline: return "underline";
        case Styles::italic: return "italic";
        case Styles::reset: return "reset";
    }
    return "none";
}

std::array<int, 3> Color::rgb255() const {
    auto scale = [](double component) { return static_cast<int>(std::lround(component * 255.0)); };
    return {scale(red), scale(green), scale(blue)};
}

Color defaultRunColor() { return Color{200.0 / 255.0, 200.0 / 255.0, 200.0 / 255.0}; }

Color colorForCode(std::u32string_view code) {
    // Compared in this order; the greys are the reverse of the game's palette.
    static const std::pair<std::u32string_view, Color> table[] = {
        {U"\u00A74", {twoThirds, 0, 0}},
        {U"\u00A7c", {1, third, third}},
        {U"\u00A76", {1, twoThirds, 0}},
        {U"\u00A7e", {1, 1, third}},
        {U"\u00A72", {0, twoThirds, 0}},
        {U"\u00A7a", {third, 1, third}},
        {U"\u00A73", {0, twoThirds, twoThirds}},
        {U"\u00A7b", {third, 1, 1}},
        {U"\u00A71", {0, 0, twoThirds}},
        {U"\u00A79", {third, third, 1}},
        {U"\u00A75", {twoThirds, 0, twoThirds}},
        {U"\u00A7d", {1, third, 1}},
        {U"\u00A78", {twoThirds, twoThirds, twoThirds}},
        {U"\u00A77", {third, third, third}},
        {U"\u00A70", {0, 0, 0}},
    };
    for (const auto& [known, color] : table) {
        if (code == known) {
            return color;
        }
    }
    return Color{1, 1, 1};
}

std::vector<StyledRun> styledText(std::string_view utf8) {
    const std::u32string text = decodeUtf8(utf8);
    const std::u32string_view all(text);
    static constexpr std::u32string_view firstStyleCode = U"\u00A7k";

    // First pass: cut at style codes. Colour codes, which sort before "§k",
    // stay inside the pieces for the second pass.
    std::vector<Piece> pieces;
    Styles style = Styles::none;
    size_t pieceStart = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i] != sectionSign) {
            continue;
        }
        auto code = codeAt(all, i);
        if (code < firstStyleCode) {
            continue;
        }
        if (auto piece = clampedSlice(all, pieceStart, i); !piece.empty()) {
            pieces.push_back({piece, style});
        }
        style = styleForCode(code);
        pieceStart = i + 2;
        // The loop goes on at i + 1: the code's letter is looked at once more.
    }
    if (auto rest = clampedSlice(all, pieceStart, all.size()); !rest.empty()) {
        pieces.push_back({rest, style});
    }

    // Second pass: cut each piece at colour codes; every piece starts grey.
    std::vector<StyledRun> runs;
    for (const auto& piece : pieces) {
        Color color = defaultRunColor();
        size_t runStart = 0;
        for (size_t j = 0; j < piece.text.size(); ++j) {
            if (piece.text[j] != sectionSign) {
                continue;
            }
            if (auto run = clampedSlice(piece.text, runStart, j); !run.empty()) {
                runs.push_back({encodeUtf8(run), piece.style, color});
            }
            runStart = j + 2;
            color = colorForCode(codeAt(piece.text, j));
        }
        if (auto run = clampedSlice(piece.text, runStart, piece.text.size()); !run.empty()) {
            runs.push_back({encodeUtf8(run), piece.style, color});
        }
    }
    return runs;
}

}  // namespace ferrylink::app
