#include "foundation/byte_buffer.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace ferrylink::foundation {
namespace {

TEST(ByteBufferReads, ReadBytesTakesExactlyWhatIsReadable) {
    ByteBuffer buffer(testing::bytesFromHex("01 02 03"));
    EXPECT_FALSE(buffer.readBytes(4).has_value());
    EXPECT_EQ(buffer.readerIndex(), 0u);
    EXPECT_FALSE(buffer.readBytes(-1).has_value());
    auto all = buffer.readBytes(3);
    ASSERT_TRUE(all.has_value());
    EXPECT_EQ(*all, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(buffer.readableBytes(), 0u);
}

TEST(ByteBufferReads, ShortIntegerReadsLeaveTheIndexAlone) {
    ByteBuffer buffer(testing::bytesFromHex("AA BB CC"));
    EXPECT_FALSE(buffer.readInteger<uint32_t>().has_value());
    EXPECT_EQ(buffer.readerIndex(), 0u);
    EXPECT_EQ(buffer.readInteger<uint16_t>(), 0xAABB);
    EXPECT_FALSE(buffer.readInteger<uint16_t>().has_value());
    EXPECT_EQ(buffer.readerIndex(), 2u);
    EXPECT_EQ(buffer.readInteger<uint8_t>(), 0xCC);
}

TEST(ByteBufferReads, GetIntegerOutsideTheReadableRangeGivesNothing) {
    ByteBuffer buffer(testing::bytesFromHex("01 02 03 04"));
    buffer.moveReaderIndexForwardBy(2);
    EXPECT_FALSE(buffer.getInteger<uint8_t>(1).has_value());
    EXPECT_EQ(buffer.getInteger<uint16_t>(2), 0x0304);
    EXPECT_FALSE(buffer.getInteger<uint16_t>(3).has_value());
}

TEST(ByteBufferIntegers, WidthsAndByteOrders) {
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

TEST(ByteBufferSlices, SliceSharesBytesAndHasItsOwnIndices) {
    ByteBuffer buffer(testing::bytesFromHex("01 02 03 04 05"));
    buffer.moveReaderIndexForwardBy(1);
    auto slice = buffer.readSlice(3);
    ASSERT_TRUE(slice.has_value());
    EXPECT_EQ(slice->readerIndex(), 0u);
    EXPECT_EQ(slice->writerIndex(), 3u);
    EXPECT_BYTES(*slice, "02 03 04");
    EXPECT_EQ(buffer.readerIndex(), 4u);

    auto empty = buffer.readSlice(0);
    ASSERT_TRUE(empty.has_value());
    EXPECT_EQ(empty->readableBytes(), 0u);
    EXPECT_FALSE(buffer.readSlice(2).has_value());
    EXPECT_EQ(buffer.readerIndex(), 4u);
}

TEST(ByteBufferCopyOnWrite, WriteThroughOneCopyIsNotSeenInTheOther) {
    ByteBuffer original(testing::bytesFromHex("01 02"));
    ByteBuffer copy = original;
    copy.writeInteger<uint8_t>(3);
    copy.setInteger<uint8_t>(9, 0);
    EXPECT_BYTES(original, "01 02");
    EXPECT_EQ(original.writerIndex(), 2u);
    EXPECT_BYTES(copy, "09 02 03");

    copy.moveReaderIndexForwardBy(1);
    EXPECT_EQ(original.readerIndex(), 0u);
}

TEST(ByteBufferCopyOnWrite, WriteToASliceLeavesTheParentAlone) {
    ByteBuffer parent(testing::bytesFromHex("01 02 03 04"));
    auto slice = *parent.getSlice(1, 2);
    slice.setInteger<uint8_t>(0xEE, 0);
    slice.writeInteger<uint8_t>(0xFF);
    EXPECT_BYTES(parent, "01 02 03 04");
    EXPECT_BYTES(slice, "EE 03 FF");
}

TEST(ByteBufferWrites, GrowsPastTheStartingCapacity) {
    auto buffer = ByteBuffer::withCapacity(2);
    EXPECT_EQ(buffer.capacity(), 2u);
    for (int i = 0; i < 100; ++i) {
        buffer.writeInteger<uint8_t>(static_cast<uint8_t>(i));
    }
    EXPECT_EQ(buffer.readableBytes(), 100u);
    EXPECT_GE(buffer.capacity(), 100u);
    EXPECT_EQ(buffer.getInteger<uint8_t>(99), 99);
}

TEST(ByteBufferWrites, WriteBufferConsumesTheSource) {
    ByteBuffer source(testing::bytesFromHex("0A 0B 0C"));
    source.moveReaderIndexForwardBy(1);
    ByteBuffer target(testing::bytesFromHex("01"));
    EXPECT_EQ(target.writeBuffer(source), 2u);
    EXPECT_BYTES(target, "01 0B 0C");
    EXPECT_EQ(source.readableBytes(), 0u);
}

TEST(ByteBufferWrites, WriteBufferIntoItself) {
    ByteBuffer buffer(testing::bytesFromHex("01 02"));
    buffer.writeBuffer(buffer);
    EXPECT_EQ(buffer.writerIndex(), 4u);
    EXPECT_EQ(buffer.readerIndex(), 2u);
    EXPECT_BYTES(buffer, "01 02");
}

TEST(ByteBufferWrites, ReadAgainFromTheStart) {
    ByteBuffer buffer(testing::bytesFromHex("05 06"));
    buffer.readInteger<uint16_t>();
    buffer.moveReaderIndex(0);
    EXPECT_EQ(buffer.readInteger<uint8_t>(), 5);
}

using ByteBufferDeathTest = ::testing::Test;

TEST_F(ByteBufferDeathTest, MovingTheReaderPastTheWriterEndsTheProcess) {
    ByteBuffer buffer(testing::bytesFromHex("01 02"));
    EXPECT_DEATH(buffer.moveReaderIndexForwardBy(3), "");
    EXPECT_DEATH(buffer.moveReaderIndex(3), "");
}

}  // namespace
}  // namespace ferrylink::foundation
