#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace ferrylink::app {

// How a run of a server's formatted text is drawn. "§k" (obfuscated) and
// "§r" (reset) draw plain, like `none`.
enum class Styles { none, obfuscated, bold, strikethrough, underline, italic, reset };

std::string_view styleName(Styles style);

// sRGB, components from 0 to 1, opacity 1.
struct Color {
    double red = 1;
    double green = 1;
    double blue = 1;
    double opacity = 1;

    bool operator==(const Color&) const = default;
    // Components in 255ths, rounded: what a style sheet takes.
    std::array<int, 3> rgb255() const;
};

// The colour a run starts with before any colour code.
Color defaultRunColor();

// The colour of a two-character code such as "§c"; anything unknown is white.
// "§8" is the light grey and "§7" the dark one.
Color colorForCode(std::u32string_view code);

// One piece of styled text: its font is the app's at size 17.
struct StyledRun {
    std::string text;  // UTF-8
    Styles style = Styles::none;
    Color color;

    bool operator==(const StyledRun&) const = default;
};

inline constexpr int kStyledRunFontSize = 17;

// Cuts section-sign formatted text into runs: first at style codes, then each
// piece at colour codes. A colour code that stands before a style code is
// lost, since colours are read piece by piece. Works on characters, not bytes;
// invalid UTF-8 reads as U+FFFD.
std::vector<StyledRun> styledText(std::string_view text);

}  // namespace ferrylink::app
