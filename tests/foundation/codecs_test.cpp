#include "foundation/codecs.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace ferrylink::foundation {
namespace {

using testing::bufferFromHex;

struct VarIntForm {
    uint64_t value;
    const char* hex;
};

class VarIntWriterTest : public ::testing::TestWithParam<VarIntForm> {};

TEST_P(VarIntWriterTest, WritesTheProtocolsOwnForm) {
    ByteBuffer buffer;
    writeVarInt(buffer, GetParam().value);
    EXPECT_BYTES(buffer, GetParam().hex);
}

INSTANTIATE_TEST_SUITE_P(EveryFormOfTheTable, VarIntWriterTest,
                         ::testing::Values(VarIntForm{0, "00"}, VarIntForm{1, "81 00"}, VarIntForm{2, "82 00"},
                                           VarIntForm{5, "85 00"}, VarIntForm{127, "FF 00"}, VarIntForm{128, "80"},
                                           VarIntForm{129, "81 81 00"}, VarIntForm{143, "8F 81 00"},
                                           VarIntForm{256, "00"}, VarIntForm{384, "80"},
                                           VarIntForm{1000, "E8 87 00"}, VarIntForm{16385, "81 80"}));

TEST(VarIntReader, ReadsOrdinaryAndNonMinimalForms) {
    const std::tuple<const char*, uint64_t, uint32_t> forms[] = {
        {"01", 1, 1}, {"81 00", 1, 2}, {"81 80 00", 1, 3}, {"8F 81 00", 143, 3}, {"AC 02", 300, 2},
        // The tenth byte ends the value whatever it holds; only its low bit counts.
        {"FF FF FF FF FF FF FF FF FF FF 00", ~uint64_t{0}, 10}, {"80 80 80 80 80 80 80 80 80 FE", 0, 10}};
    for (auto [hex, value, consumed] : forms) {
        auto buffer = bufferFromHex(hex);
        EXPECT_EQ(readVarInt(buffer), value) << hex;
        EXPECT_EQ(buffer.readerIndex(), consumed) << hex;
    }
    // Zig-zag on top, read from ordinary encodings (the writer cuts some short).
    const std::pair<const char*, int32_t> signedForms[] = {
        {"00", 0}, {"01", -1}, {"02", 1}, {"D0 0F", 1000}, {"CF 0F", -1000}, {"FE FF FF FF 0F", 2147483647}};
    for (auto [hex, value] : signedForms) {
        auto buffer = bufferFromHex(hex);
        EXPECT_EQ(readSignedVarInt(buffer), value) << hex;
    }
}

TEST(Codecs, ShortInputGivesNothing) {
    auto varInt = bufferFromHex("81 81"), string = bufferFromHex("05 61 62"), single = bufferFromHex("00 00 80");
    EXPECT_EQ(readVarInt(varInt), std::nullopt);
    EXPECT_EQ(readVarString(string), std::nullopt);
    EXPECT_EQ(readFloat(single), std::nullopt);
}

TEST(Codecs, SignedStringAndFloatWriters) {
    ByteBuffer buffer;
    writeSignedVarInt(buffer, -1);
    writeSignedVarInt(buffer, 64);
    writeSignedVarLong(buffer, -1);
    writeVarString(buffer, "");
    writeVarString(buffer, "*");
    writeFloat(buffer, 1.0f);
    writeFloat(buffer, -2.5f);
    // The string's length goes through the var-int writer and its quirks too.
    EXPECT_BYTES(buffer, "81 00  80  81 00  00  81 00 2A  00 00 80 3F  00 00 20 C0");
}

TEST(Codecs, ReadersOfStringsAndFloats) {
    auto buffer = bufferFromHex("81 00 2A  04 61 FF C3 28  05 C3 A9 E2 82 AC  00 00 20 C0");
    EXPECT_EQ(readVarString(buffer), "*");
    // Invalid UTF-8 becomes replacement characters; valid text stays.
    EXPECT_EQ(readVarString(buffer), "a\xEF\xBF\xBD\xEF\xBF\xBD(");
    EXPECT_EQ(readVarString(buffer), "\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(readFloat(buffer), -2.5f);
    EXPECT_EQ(buffer.readableBytes(), 0u);
}

}  // namespace
}  // namespace ferrylink::foundation
