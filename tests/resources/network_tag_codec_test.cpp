#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "network_tag_reader.h"
#include "resources/resgen/network_tag_writer.h"
#include "test_bytes.h"

namespace ferrylink::resources {
namespace {

using testing::hexBytes;
using testing::hexString;

// The network form uses the ordinary base-128 var-int everywhere: the writer
// must never produce the game packets' own var-int forms (81 00 for 1, a lone
// 80 for 128), which the client's tag parser would misread.
TEST(NetworkTagWriterTest, WritesOrdinaryVarIntsForLengthsAndZigZagInts) {
    const struct {
        const char* what;
        void (*write)(NetworkTagWriter&);
        const char* hex;
    } cases[] = {
        {"empty unnamed compound", [](NetworkTagWriter& w) { w.beginCompound(""); w.endCompound(); }, "0A 00 00"},
        {"int 1", [](NetworkTagWriter& w) { w.writeInt("a", 1); }, "03 01 61 02"},
        {"int -1", [](NetworkTagWriter& w) { w.writeInt("a", -1); }, "03 01 61 01"},
        {"int 64", [](NetworkTagWriter& w) { w.writeInt("a", 64); }, "03 01 61 80 01"},
        {"int 300", [](NetworkTagWriter& w) { w.writeInt("a", 300); }, "03 01 61 D8 04"},
        {"int minimum", [](NetworkTagWriter& w) { w.writeInt("a", std::numeric_limits<std::int32_t>::min()); },
         "03 01 61 FF FF FF FF 0F"},
        {"block state version", [](NetworkTagWriter& w) { w.writeInt("version", 17825808); },
         "03 07 76 65 72 73 69 6F 6E A0 80 80 11"},
        {"short", [](NetworkTagWriter& w) { w.writeShort("id", 0x1234); }, "02 02 69 64 34 12"},
        {"negative short", [](NetworkTagWriter& w) { w.writeShort("id", -2); }, "02 02 69 64 FE FF"},
        {"byte", [](NetworkTagWriter& w) { w.writeByte("b", -1); }, "01 01 62 FF"},
        {"float 0.8", [](NetworkTagWriter& w) { w.writeFloat("t", 0.8F); }, "05 01 74 CD CC 4C 3F"},
        {"float -0.5", [](NetworkTagWriter& w) { w.writeFloat("t", -0.5F); }, "05 01 74 00 00 00 BF"},
        {"string", [](NetworkTagWriter& w) { w.writeString("s", "ab"); }, "08 01 73 02 61 62"},
        {"list of two compounds",
         [](NetworkTagWriter& w) {
             w.beginList("", TagType::Compound, 2);
             w.beginCompoundElement();
             w.endCompound();
             w.beginCompoundElement();
             w.writeByte("x", 1);
             w.endCompound();
         },
         "09 00 0A 04 00 01 01 78 01 00"},
        {"list of strings",
         [](NetworkTagWriter& w) {
             w.beginList("l", TagType::String, 1);
             w.writeStringElement("z");
         },
         "09 01 6C 08 02 01 7A"},
    };
    for (const auto& c : cases) {
        NetworkTagWriter writer;
        c.write(writer);
        EXPECT_EQ(hexString(writer.take()), c.hex) << c.what;
    }
}

TEST(NetworkTagWriterTest, LongStringLengthsTakeTwoOrdinaryVarIntBytes) {
    for (const auto& [size, prefix] : {std::pair{127, "08 01 73 7F"}, std::pair{128, "08 01 73 80 01"},
                                       std::pair{200, "08 01 73 C8 01"}, std::pair{16384, "08 01 73 80 80 01"}}) {
        NetworkTagWriter writer;
        writer.writeString("s", std::string(static_cast<std::size_t>(size), 'x'));
        const auto bytes = writer.take();
        const auto expected = hexBytes(prefix);
        ASSERT_EQ(bytes.size(), expected.size() + static_cast<std::size_t>(size)) << size;
        EXPECT_EQ(hexString({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(expected.size())}),
                  prefix);
    }
}

TEST(NetworkTagWriterTest, RefusesToHandOverAnOpenCompound) {
    NetworkTagWriter writer;
    writer.beginCompound("");
    EXPECT_THROW(writer.take(), std::logic_error);
    writer.endCompound();
    EXPECT_THROW(writer.endCompound(), std::logic_error);
}

TEST(NetworkTagReaderTest, ReadsEveryTagTypeOfTheNetworkForm) {
    const auto bytes = hexBytes(
        "0A 04 72 6F 6F 74"                // compound "root"
        "01 01 62 FE"                      //   byte b = -2
        "02 01 73 34 12"                   //   short s = 0x1234
        "03 01 69 D7 04"                   //   int i = -300
        "04 01 6C FF FF FF FF FF FF FF FF FF 01"  // long l = minimum
        "05 01 66 CD CC 4C 3F"             //   float f = 0.8
        "06 01 64 00 00 00 00 00 00 F0 3F" //   double d = 1.0
        "07 02 62 61 04 01 FF"             //   byte[] ba = {1, -1}
        "08 03 73 74 72 02 68 69"          //   string str = "hi"
        "09 02 6C 73 08 04 01 61 01 62"    //   list ls of strings = {"a", "b"}
        "0A 01 63 03 01 78 02 00"          //   compound c { int x = 1 }
        "0B 02 69 61 04 01 02"             //   int[] ia = {-1, 1}
        "0C 02 6C 61 02 04"                //   long[] la = {2}
        "00");
    const NamedTag root = readWholeNetworkTag(bytes);
    EXPECT_EQ(root.name, "root");
    const Tag& tag = root.tag;
    EXPECT_EQ(tag.asCompound().entries.size(), 12U);
    EXPECT_EQ(tag.at("b").asByte(), -2);
    EXPECT_EQ(tag.at("s").asShort(), 0x1234);
    EXPECT_EQ(tag.at("i").asInt(), -300);
    EXPECT_EQ(std::get<std::int64_t>(tag.at("l").value), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(tag.at("f").asFloat(), 0.8F);
    EXPECT_EQ(std::get<double>(tag.at("d").value), 1.0);
    EXPECT_EQ(std::get<std::vector<std::int8_t>>(tag.at("ba").value), (std::vector<std::int8_t>{1, -1}));
    EXPECT_EQ(tag.at("str").asString(), "hi");
    const TagList& list = tag.at("ls").asList();
    ASSERT_EQ(list.elementType, TagType::String);
    ASSERT_EQ(list.items.size(), 2U);
    EXPECT_EQ(list.items[1].asString(), "b");
    EXPECT_EQ(tag.at("c").at("x").asInt(), 1);
    EXPECT_EQ(std::get<std::vector<std::int32_t>>(tag.at("ia").value), (std::vector<std::int32_t>{-1, 1}));
    EXPECT_EQ(std::get<std::vector<std::int64_t>>(tag.at("la").value), (std::vector<std::int64_t>{2}));
}

TEST(NetworkTagReaderTest, ReadsWhatTheWriterWrites) {
    NetworkTagWriter writer;
    writer.beginCompound("");
    writer.writeString(std::string(300, 'k'), std::string(1000, 'v'));
    writer.beginList("items", TagType::Compound, 1);
    writer.beginCompoundElement();
    writer.writeInt("n", -123456789);
    writer.writeFloat("f", 2.5F);
    writer.endCompound();
    writer.endCompound();
    const auto bytes = writer.take();

    const NamedTag root = readWholeNetworkTag(bytes);
    EXPECT_EQ(root.tag.at(std::string(300, 'k')).asString(), std::string(1000, 'v'));
    const Tag& item = root.tag.at("items").asList().items.at(0);
    EXPECT_EQ(item.at("n").asInt(), -123456789);
    EXPECT_EQ(item.at("f").asFloat(), 2.5F);
}

TEST(NetworkTagReaderTest, RefusesMalformedInput) {
    const struct {
        const char* what;
        const char* hex;
    } cases[] = {
        {"nothing at all", ""},
        {"end tag at the root", "00"},
        {"compound without its end", "0A 00"},
        {"string longer than the input", "0A 00 08 01 61 05 61 62 00"},
        {"name longer than the input", "0A 05 61"},
        {"negative list length", "09 00 01 01"},
        {"list count beyond the input", "09 00 01 14 01 02"},
        {"non-empty list of end tags", "09 00 00 02"},
        {"unknown tag type", "0A 00 0D 00 00"},
        {"var-int that never ends", "0A 00 03 01 61 FF FF FF FF FF FF"},
        {"truncated float", "05 00 CD CC"},
        {"trailing byte after the root", "0A 00 00 00"},
    };
    for (const auto& c : cases) {
        EXPECT_THROW(readWholeNetworkTag(hexBytes(c.hex)), NetworkTagError) << c.what;
    }
}

TEST(NetworkTagReaderTest, RefusesNestingTooDeepToFollow) {
    std::string hex = "09 00";
    for (int i = 0; i < 1000; ++i) {
        hex += " 09 02";  // a list holding one list
    }
    hex += " 01 00";
    EXPECT_THROW(readWholeNetworkTag(hexBytes(hex)), NetworkTagError);
}

TEST(NetworkTagReaderTest, ReportsAWrongTypeOnTypedAccess) {
    const NamedTag root = readWholeNetworkTag(hexBytes("0A 00 03 01 61 02 00"));
    EXPECT_THROW(root.tag.at("a").asFloat(), NetworkTagError);
    EXPECT_THROW(root.tag.at("missing"), NetworkTagError);
    EXPECT_EQ(root.tag.find("missing"), nullptr);
}

}  // namespace
}  // namespace ferrylink::resources
