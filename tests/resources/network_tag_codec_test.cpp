#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

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

}  // namespace
}  // namespace ferrylink::resources
