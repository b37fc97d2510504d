#include "foundation/codecs.h"

#include <gtest/gtest.h>

#include <cmath>

#include "foundation/byte_backpacker.h"
#include "support/hex.h"

namespace ferrylink::foundation {
namespace {

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

struct ReaderCase {
    const char* hex;
    uint64_t value;
    uint32_t consumed;
};

class VarIntReaderTest : public ::testing::TestWithParam<ReaderCase> {};

TEST_P(VarIntReaderTest, ReadsOrdinaryAndNonMinimalForms) {
    auto buffer = testing::bufferFromHex(GetParam().hex);
    EXPECT_EQ(readVarInt(buffer), GetParam().value);
    EXPECT_EQ(buffer.readerIndex(), GetParam().consumed);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, VarIntReaderTest,
    ::testing::Values(ReaderCase{"01", 1, 1}, ReaderCase{"81 00", 1, 2}, ReaderCase{"81 80 00", 1, 3},
                      ReaderCase{"8F 81 00", 143, 3}, ReaderCase{"E8 87 00", 1000, 3}, ReaderCase{"AC 02", 300, 2},
                      // The tenth byte ends the value whatever it holds; only its low bit counts.
                      ReaderCase{"FF FF FF FF FF FF FF FF FF FF 00", ~uint64_t{0}, 10},
                      ReaderCase{"80 80 80 80 80 80 80 80 80 FE", 0, 10}));

TEST(ShortInput, ReadersGiveNothing) {
    auto varInt = testing::bufferFromHex("81 81");
    EXPECT_EQ(readVarInt(varInt), std::nullopt);
    auto string = testing::bufferFromHex("05 61 62");
    EXPECT_EQ(readVarString(string), std::nullopt);
    auto single = testing::bufferFromHex("00 00 80");
    EXPECT_EQ(readFloat(single), std::nullopt);
}

TEST(ZigZag, SignedWritersAndReader) {
    ByteBuffer buffer;
    writeSignedVarInt(buffer, -1);
    EXPECT_BYTES(buffer, "81 00");
    buffer = ByteBuffer();
    writeSignedVarInt(buffer, 64);
    EXPECT_BYTES(buffer, "80");
    buffer = ByteBuffer();
    writeSignedVarLong(buffer, -1);
    EXPECT_BYTES(buffer, "81 00");

    for (int32_t value : {0, -1, 1, -2, 3, 1000, -1000, 2147483647}) {
        // The writer cuts some values short; read back from ordinary encodings.
        ByteBuffer encoded;
        uint32_t zigzag = (static_cast<uint32_t>(value) << 1) ^ (value < 0 ? 0xFFFFFFFFu : 0u);
        do {
            uint8_t byte = zigzag & 0x7F;
            zigzag >>= 7;
            encoded.writeInteger<uint8_t>(zigzag ? byte | 0x80 : byte);
        } while (zigzag);
        EXPECT_EQ(readSignedVarInt(encoded), value);
    }
}

TEST(VarString, LengthGoesThroughTheVarIntWriter) {
    ByteBuffer empty;
    writeVarString(empty, "");
    EXPECT_BYTES(empty, "00");

    ByteBuffer star;
    writeVarString(star, "*");
    EXPECT_BYTES(star, "81 00 2A");
    EXPECT_EQ(readVarString(star), "*");
    EXPECT_EQ(star.readableBytes(), 0u);

    ByteBuffer long128;
    writeVarString(long128, std::string(128, 'a'));
    EXPECT_EQ(long128.readableBytes(), 129u);
    EXPECT_EQ(long128.getInteger<uint8_t>(0), 0x80);
}

TEST(VarString, InvalidUtf8BecomesReplacementCharacters) {
    auto buffer = testing::bufferFromHex("04 61 FF C3 28");
    EXPECT_EQ(readVarString(buffer), "a\xEF\xBF\xBD\xEF\xBF\xBD(");
    EXPECT_EQ(buffer.readableBytes(), 0u);

    auto valid = testing::bufferFromHex("05 C3 A9 E2 82 AC");
    EXPECT_EQ(readVarString(valid), "\xC3\xA9\xE2\x82\xAC");
}

TEST(Floats, LittleEndianSingles) {
    ByteBuffer buffer;
    writeFloat(buffer, 1.0f);
    writeFloat(buffer, -2.5f);
    EXPECT_BYTES(buffer, "00 00 80 3F 00 00 20 C0");
    EXPECT_EQ(readFloat(buffer), 1.0f);
    EXPECT_EQ(readFloat(buffer), -2.5f);
}

TEST(ByteBackpackerTest, PackReversesOnlyForTheOtherOrder) {
    EXPECT_EQ(nativeByteOrder(), ByteOrder::littleEndian);
    EXPECT_EQ(ByteBackpacker::pack<uint16_t>(0x0102, ByteOrder::bigEndian), (std::vector<uint8_t>{1, 2}));
    EXPECT_EQ(ByteBackpacker::pack<uint16_t>(0x0102, ByteOrder::littleEndian), (std::vector<uint8_t>{2, 1}));
    std::vector<uint8_t> bytes{0, 0, 0x80, 0x3F};
    EXPECT_EQ(ByteBackpacker::unpack<float>(bytes), 1.0f);
    EXPECT_EQ(ByteBackpacker::unpack<uint32_t>(bytes, ByteOrder::bigEndian), 0x0000803Fu);
}

}  // namespace
}  // namespace ferrylink::foundation
