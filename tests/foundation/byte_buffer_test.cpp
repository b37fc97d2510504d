#include "foundation/byte_buffer.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace ferrylink::foundation {
namespace {

using testing::bufferFromHex;

TEST(ByteBufferReads, ShortReadsGiveNothingAndLeaveTheIndexAlone) {
    auto buffer = bufferFromHex("AA BB CC");
    EXPECT_FALSE(buffer.readBytes(4));
    EXPECT_FALSE(buffer.readBytes(-1));
    EXPECT_FALSE(buffer.readInteger<uint32_t>());
    EXPECT_FALSE(buffer.readSlice(4));
    EXPECT_EQ(buffer.readerIndex(), 0u);
    EXPECT_EQ(buffer.readInteger<uint16_t>(), 0xAABB);
    EXPECT_FALSE(buffer.readInteger<uint16_t>());
    EXPECT_FALSE(buffer.getInteger<uint8_t>(1));  // behind the reader
    EXPECT_EQ(buffer.readBytes(1), std::vector<uint8_t>{0xCC});
}

TEST(ByteBufferReads, WidthsAndByteOrders) {
    ByteBuffer buffer;
    buffer.writeInteger<uint16_t>(0x1234);
    buffer.writeInteger<uint16_t>(0x1234, Endianness::little);
    buffer.writeInteger<int32_t>(-2);
    buffer.writeInteger<int64_t>(1, Endianness::little);
    EXPECT_BYTES(buffer, "12 34 34 12 FF FF FF FE 01 00 00 00 00 00 00 00");
    EXPECT_EQ(buffer.readInteger<uint16_t>(Endianness::little), 0x3412);
    EXPECT_EQ(buffer.readInteger<uint16_t>(Endianness::little), 0x1234);
    EXPECT_EQ(buffer.readInteger<int32_t>(), -2);
    EXPECT_EQ(buffer.readInteger<int64_t>(Endianness::little), 1);
}

TEST(ByteBufferSlices, ASliceSharesBytesButNotWrites) {
    auto parent = bufferFromHex("01 02 03 04 05");
    parent.moveReaderIndexForwardBy(1);
    auto slice = *parent.readSlice(3);
    EXPECT_BYTES(slice, "02 03 04");
    EXPECT_EQ(parent.readerIndex(), 4u);

    slice.setInteger<uint8_t>(0xEE, 0);
    slice.writeInteger<uint8_t>(0xFF);
    EXPECT_BYTES(slice, "EE 03 04 FF");
    ByteBuffer copy = parent;
    copy.writeInteger<uint8_t>(6);
    copy.moveReaderIndexForwardBy(1);
    EXPECT_BYTES(parent, "05");
    parent.moveReaderIndex(0);
    EXPECT_BYTES(parent, "01 02 03 04 05");
}

TEST(ByteBufferWrites, WriteBufferConsumesTheSourceEvenItself) {
    auto source = bufferFromHex("0A 0B 0C");
    source.moveReaderIndexForwardBy(1);
    auto target = bufferFromHex("01");
    EXPECT_EQ(target.writeBuffer(source), 2u);
    EXPECT_BYTES(target, "01 0B 0C");
    EXPECT_EQ(source.readableBytes(), 0u);

    auto itself = bufferFromHex("01 02");
    itself.writeBuffer(itself);
    EXPECT_EQ(itself.writerIndex(), 4u);
    EXPECT_BYTES(itself, "01 02");
}

TEST(ByteBufferDeathTest, MovingTheReaderPastTheWriterEndsTheProcess) {
    auto buffer = bufferFromHex("01 02");
    EXPECT_DEATH(buffer.moveReaderIndexForwardBy(3), "");
}

}  // namespace
}  // namespace ferrylink::foundation
