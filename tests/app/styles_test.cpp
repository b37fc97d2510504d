#include "app/styles.h"

#include <gtest/gtest.h>

namespace ferrylink::app {
namespace {

constexpr double third = 1.0 / 3.0;
constexpr double twoThirds = 2.0 / 3.0;

Color rgb(int red, int green, int blue) { return Color{red / 255.0, green / 255.0, blue / 255.0}; }

const Color grey = rgb(200, 200, 200);
const Color white{1, 1, 1};

TEST(StyledText, EmptyTextGivesNoRun) { EXPECT_TRUE(styledText("").empty()); }

TEST(StyledText, PlainTextIsOneGreyRunWithoutStyle) {
    EXPECT_EQ(styledText("Hello world"), (std::vector<StyledRun>{{"Hello world", Styles::none, grey}}));
}

TEST(StyledText, PlaceholderSubtitleIsBoldWhite) {
    // "§l" is taken by the first pass, "§f" by the second.
    EXPECT_EQ(styledText("\u00A7l\u00A7funavailable!"),
              (std::vector<StyledRun>{{"unavailable!", Styles::bold, white}}));
}

TEST(StyledText, StyleCodeReplacesTheStyle) {
    EXPECT_EQ(styledText("\u00A7lAB\u00A7rCD"),
              (std::vector<StyledRun>{{"AB", Styles::bold, grey}, {"CD", Styles::reset, grey}}));
}

TEST(StyledText, ColourCodesCutRunsWithinAPiece) {
    EXPECT_EQ(styledText("\u00A7cA\u00A7dB"),
              (std::vector<StyledRun>{{"A", Styles::none, Color{1, third, third}},
                                      {"B", Styles::none, Color{1, third, 1}}}));
}

TEST(StyledText, ColourBeforeAStyleCodeIsLost) {
    EXPECT_EQ(styledText("\u00A7a\u00A7lX"), (std::vector<StyledRun>{{"X", Styles::bold, grey}}));
    EXPECT_EQ(styledText("\u00A7l\u00A7aX"), (std::vector<StyledRun>{{"X", Styles::bold, Color{third, 1, third}}}));
}

TEST(StyledText, LoneStyleCodeGivesNoRun) { EXPECT_TRUE(styledText("\u00A7l").empty()); }

TEST(StyledText, SectionSignAtTheEndShowsNothing) {
    EXPECT_EQ(styledText("A\u00A7"), (std::vector<StyledRun>{{"A", Styles::none, grey}}));
}

TEST(StyledText, UnknownLettersFromKOnAreResetAndBelowAreWhiteColours) {
    EXPECT_EQ(styledText("\u00A7zA"), (std::vector<StyledRun>{{"A", Styles::reset, grey}}));
    EXPECT_EQ(styledText("\u00A7gA"), (std::vector<StyledRun>{{"A", Styles::none, white}}));
    // Capitals sort before "§k": "§L" is a colour code, not bold.
    EXPECT_EQ(styledText("\u00A7LA"), (std::vector<StyledRun>{{"A", Styles::none, white}}));
}

TEST(StyledText, EveryStyleCode) {
    EXPECT_EQ(styledText("\u00A7kA\u00A7mB\u00A7nC\u00A7oD"),
              (std::vector<StyledRun>{{"A", Styles::obfuscated, grey},
                                      {"B", Styles::strikethrough, grey},
                                      {"C", Styles::underline, grey},
                                      {"D", Styles::italic, grey}}));
}

TEST(StyledText, CountsCharactersNotBytes) {
    EXPECT_EQ(styledText("\u00E9t\u00E9 \u00A7b\u2603\u00A7o\U0001F600"),
              (std::vector<StyledRun>{{"\u00E9t\u00E9 ", Styles::none, grey},
                                      {"\u2603", Styles::none, Color{third, 1, 1}},
                                      {"\U0001F600", Styles::italic, grey}}));
}

TEST(ColorForCode, KeepsTheSwappedGreys) {
    EXPECT_EQ(colorForCode(U"\u00A78"), (Color{twoThirds, twoThirds, twoThirds}));
    EXPECT_EQ(colorForCode(U"\u00A77"), (Color{third, third, third}));
    EXPECT_EQ(colorForCode(U"\u00A78").rgb255(), (std::array<int, 3>{170, 170, 170}));
    EXPECT_EQ(colorForCode(U"\u00A77").rgb255(), (std::array<int, 3>{85, 85, 85}));
}

TEST(ColorForCode, WholeTableIn255ths) {
    const std::pair<std::u32string, std::array<int, 3>> table[] = {
        {U"\u00A74", {170, 0, 0}},   {U"\u00A7c", {255, 85, 85}},   {U"\u00A76", {255, 170, 0}},
        {U"\u00A7e", {255, 255, 85}}, {U"\u00A72", {0, 170, 0}},    {U"\u00A7a", {85, 255, 85}},
        {U"\u00A73", {0, 170, 170}}, {U"\u00A7b", {85, 255, 255}},  {U"\u00A71", {0, 0, 170}},
        {U"\u00A79", {85, 85, 255}}, {U"\u00A75", {170, 0, 170}},   {U"\u00A7d", {255, 85, 255}},
        {U"\u00A70", {0, 0, 0}},     {U"\u00A7f", {255, 255, 255}}, {U"\u00A7", {255, 255, 255}},
    };
    for (const auto& [code, expected] : table) {
        EXPECT_EQ(colorForCode(code).rgb255(), expected);
    }
}

}  // namespace
}  // namespace ferrylink::app
