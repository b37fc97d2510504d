#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "network_tag_reader.h"
#include "resources/resgen/network_tag_writer.h"
#include "support/hex.h"

namespace ferrylink::resources {
namespace {

using ferrylink::testing::bytesFromHex;
using ferrylink::testing::hexOf;

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
        {"int minimum", [](NetworkTagWriter& w) { w.writeInt("a", std::numeric_limits<std::int32_t>::min()); },
         "03 01 61 FF FF FF FF 0F"},
        {"block state version", [](NetworkTagWriter& w) { w.writeInt("version", 17825808); },
         "03 07 76 65 72 73 69 6F 6E A0 80 80 11"},
        {"negative short", [](NetworkTagWriter& w) { w.writeShort("id", -2); }, "02 02 69 64 FE FF"},
        {"byte", [](NetworkTagWriter& w) { w.writeByte("b", -1); }, "01 01 62 FF"},
        {"float 0.8", [](NetworkTagWriter& w) { w.writeFloat("t", 0.8F); }, "05 01 74 CD CC 4C 3F"},
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
        EXPECT_EQ(hexOf(writer.take()), c.hex) << c.what;
    }
}

TEST(NetworkTagWriterTest, LongStringLengthsTakeTwoOrdinaryVarIntBytes) {
    for (const auto& [size, prefix] : {std::pair{127, "08 01 73 7F"}, std::pair{128, "08 01 73 80 01"},
                                       std::pair{16384, "08 01 73 80 80 01"}}) {
        NetworkTagWriter writer;
        writer.writeString("s", std::string(static_cast<std::size_t>(size), 'x'));
        const auto bytes = writer.take();
        const auto head = bytesFromHex(prefix);
        ASSERT_EQ(bytes.size(), head.size() + static_cast<std::size_t>(size)) << size;
        EXPECT_EQ(hexOf(std::span(bytes).first(head.size())), prefix);
    }
}

TEST(NetworkTagWriterTest, RefusesToHandOverAnOpenCompound) {
    NetworkTagWriter writer;
    writer.beginCompound("");
    EXPECT_THROW(writer.take(), std::logic_error);
    writer.endCompound();
    EXPECT_THROW(writer.endCompound(), std::logic_error);
}

// The files' checks are only as strict as this reader: it must read back
// what the writer wrote and refuse what is not one whole tag.
TEST(NetworkTagReaderTest, ReadsWhatTheWriterWrites) {
    NetworkTagWriter writer;
    writer.beginCompound("");
    writer.writeString(std::string(300, 'k'), std::string(1000, 'v'));
    writer.beginList("items", TagType::Compound, 1);
    writer.beginCompoundElement();
    writer.writeInt("n", -123456789);
    writer.writeShort("s", 0x1234);
    writer.writeFloat("f", 2.5F);
    writer.endCompound();
    writer.endCompound();

    const NamedTag root = readWholeNetworkTag(writer.take());
    EXPECT_EQ(root.tag.at(std::string(300, 'k')).asString(), std::string(1000, 'v'));
    const Tag& item = root.tag.at("items").asList().items.at(0);
    EXPECT_EQ(item.at("n").asInt(), -123456789);
    EXPECT_EQ(item.at("s").asShort(), 0x1234);
    EXPECT_EQ(item.at("f").asFloat(), 2.5F);
    EXPECT_THROW(item.at("n").asFloat(), NetworkTagError);
    EXPECT_THROW(item.at("missing"), NetworkTagError);
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
        {"negative list length", "09 00 01 01"},
        {"list count beyond the input", "09 00 01 14 01 02"},
        {"non-empty list of end tags", "09 00 00 02"},
        {"var-int that never ends", "0A 00 03 01 61 FF FF FF FF FF FF"},
        {"trailing byte after the root", "0A 00 00 00"},
    };
    for (const auto& c : cases) {
        EXPECT_THROW(readWholeNetworkTag(bytesFromHex(c.hex)), NetworkTagError) << c.what;
    }
}

}  // namespace
}  // namespace ferrylink::resources
