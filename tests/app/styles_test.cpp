#include "app/styles.h"

#include <gtest/gtest.h>

namespace ferrylink::app {
namespace {

Color rgb(int red, int green, int blue) { return Color{red / 255.0, green / 255.0, blue / 255.0}; }

const Color grey = rgb(200, 200, 200);
const Color white = rgb(255, 255, 255);

TEST(StyledText, Examples) {
    const std::pair<const char*, std::vector<StyledRun>> examples[] = {
        {"", {}},
        {"Hello world", {{"Hello world", Styles::none, grey}}},
        // "§l" is taken by the first pass, "§f" by the second.
        {"\u00A7l\u00A7funavailable!", {{"unavailable!", Styles::bold, white}}},
        {"\u00A7lAB\u00A7rCD", {{"AB", Styles::bold, grey}, {"CD", Styles::reset, grey}}},
        {"\u00A7cA\u00A7dB", {{"A", Styles::none, rgb(255, 85, 85)}, {"B", Styles::none, rgb(255, 85, 255)}}},
        // A colour before a style code is lost; after it, it holds.
        {"\u00A7a\u00A7lX", {{"X", Styles::bold, grey}}},
        {"\u00A7l\u00A7aX", {{"X", Styles::bold, rgb(85, 255, 85)}}},
        {"\u00A7l", {}},
        {"A\u00A7", {{"A", Styles::none, grey}}},
        // From "§k" on, unknown letters reset; below it they are white colours,
        // capitals included.
        {"\u00A7zA", {{"A", Styles::reset, grey}}},
        {"\u00A7gA", {{"A", Styles::none, white}}},
        {"\u00A7LA", {{"A", Styles::none, white}}},
        {"\u00A7kA\u00A7mB\u00A7nC\u00A7oD",
         {{"A", Styles::obfuscated, grey}, {"B", Styles::strikethrough, grey}, {"C", Styles::underline, grey},
          {"D", Styles::italic, grey}}},
        // Characters, not bytes.
        {"\u00E9t\u00E9 \u00A7b\u2603\u00A7o\U0001F600",
         {{"\u00E9t\u00E9 ", Styles::none, grey}, {"\u2603", Styles::none, rgb(85, 255, 255)},
          {"\U0001F600", Styles::italic, grey}}},
    };
    for (const auto& [text, runs] : examples) {
        EXPECT_EQ(styledText(text), runs) << text;
    }
}

TEST(ColorForCode, WholeTableWithTheSwappedGreys) {
    const std::pair<std::u32string, std::array<int, 3>> table[] = {
        {U"\u00A74", {170, 0, 0}},    {U"\u00A7c", {255, 85, 85}},   {U"\u00A76", {255, 170, 0}},
        {U"\u00A7e", {255, 255, 85}}, {U"\u00A72", {0, 170, 0}},     {U"\u00A7a", {85, 255, 85}},
        {U"\u00A73", {0, 170, 170}},  {U"\u00A7b", {85, 255, 255}},  {U"\u00A71", {0, 0, 170}},
        {U"\u00A79", {85, 85, 255}},  {U"\u00A75", {170, 0, 170}},   {U"\u00A7d", {255, 85, 255}},
        {U"\u00A70", {0, 0, 0}},      {U"\u00A7f", {255, 255, 255}}, {U"\u00A7", {255, 255, 255}},
        {U"\u00A78", {170, 170, 170}}, {U"\u00A77", {85, 85, 85}},
    };
    for (const auto& [code, expected] : table) {
        EXPECT_EQ(colorForCode(code).rgb255(), expected);
    }
    EXPECT_EQ(colorForCode(U"\u00A78"), (Color{2.0 / 3.0, 2.0 / 3.0, 2.0 / 3.0}));
}

}  // namespace
}  // namespace ferrylink::app
