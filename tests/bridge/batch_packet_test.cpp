#include "bridge/packets/batch_packet.h"

#include <gtest/gtest.h>

#include <string>

#include "bridge/packets/network_settings_packet.h"
#include "bridge/packets/play_status_packet.h"
#include "bridge/packets/raw_deflate.h"
#include "bridge/packets/transfer_packet.h"
#include "foundation/codecs.h"
#include "support/hex.h"
#include "test_server_link.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using testing::bufferFromHex;
using testing::bytesFromHex;

// A body of exactly `size` bytes behind a two-byte header.
class SizedPacket : public DataPacket {
public:
    SizedPacket(uint8_t id, uint32_t totalSize) : DataPacket(id), bodySize_(totalSize - 2) {}
    void encode(ByteBuffer& buffer) override { buffer.writeBytes(std::string(bodySize_, 'x')); }

private:
    uint32_t bodySize_;
};

// The frame as a session sends it: the id byte, then the batch's content.
ByteBuffer frameOf(DataPacket& packet, CompressionAlgorithm algorithm) {
    BatchPacket batch(algorithm);
    batch.addPacket(packet);
    ByteBuffer frame;
    frame.writeInteger<uint8_t>(batch.NetworkId);
    batch.encode(frame);
    batch.encoded = true;
    return frame;
}

// The frame as the server receives it: first byte stepped over unchecked.
std::vector<ByteBuffer> packetsOf(ByteBuffer frame, CompressionAlgorithm algorithm) {
    BatchPacket batch(algorithm);
    if (frame.readableBytes() > 0) {
        frame.moveReaderIndexForwardBy(1);
    }
    batch.decode(frame);
    return batch.getPackets();
}

class BatchPacketTest : public ::testing::Test {
protected:
    void SetUp() override { testing::TestServerLink::installNew(); }
};

TEST_F(BatchPacketTest, UncompressedFrameHoldsLengthHeaderAndBody) {
    PlayStatusPacket status(PlayStatusPacket::Status::LOGIN_SUCCESS);
    EXPECT_BYTES(frameOf(status, CompressionAlgorithm::NONE), "FE 86 00 82 00 00 00 00 00");
    EXPECT_TRUE(status.encoded);

    NetworkSettingsPacket settings;
    EXPECT_BYTES(frameOf(settings, CompressionAlgorithm::NONE),
                 "FE 8D 00 8F 81 00 01 00 00 00 00 00 00 00 00 00");
}

TEST_F(BatchPacketTest, CompressedFrameIsRawDeflateOfTheSameEntry) {
    PlayStatusPacket status(PlayStatusPacket::Status::PLAYER_SPAWN);
    ByteBuffer frame = frameOf(status, CompressionAlgorithm::ZLIB);
    ASSERT_EQ(frame.getInteger<uint8_t>(0), 0xFE);
    auto body = frame.getBytes(1, frame.readableBytes() - 1);
    ASSERT_TRUE(body);
    // zlib's own header would start 78; a raw stream has none.
    EXPECT_NE((*body)[0], 0x78);
    auto inflated = inflateRaw(*body);
    ASSERT_TRUE(inflated);
    EXPECT_BYTES(ByteBuffer(*inflated), "86 00 82 00 00 00 00 03");
}

TEST_F(BatchPacketTest, PacketAlreadyEncodedAddsAnEmptyEntry) {
    PlayStatusPacket status(PlayStatusPacket::Status::LOGIN_SUCCESS);
    status.encoded = true;
    EXPECT_BYTES(frameOf(status, CompressionAlgorithm::NONE), "FE 00");
}

TEST_F(BatchPacketTest, LengthsGoThroughTheProtocolVarIntWriter) {
    SizedPacket of300(0x01, 300);
    EXPECT_BYTES(ByteBuffer(frameOf(of300, CompressionAlgorithm::NONE).getBytes(1, 3).value()), "AC 82 00");

    // 256 is cut short to the lone byte 00, which a client reads as an empty
    // entry followed by garbage.
    SizedPacket of256(0x01, 256);
    ByteBuffer frame = frameOf(of256, CompressionAlgorithm::NONE);
    EXPECT_EQ(frame.readableBytes(), 1u + 1u + 256u);
    EXPECT_BYTES(ByteBuffer(frame.getBytes(0, 4).value()), "FE 00 81 00");

    SizedPacket of128(0x01, 128);
    EXPECT_BYTES(ByteBuffer(frameOf(of128, CompressionAlgorithm::NONE).getBytes(0, 3).value()), "FE 80 81");
}

TEST_F(BatchPacketTest, RoundTripSplitsEveryPacketInOrder) {
    for (auto algorithm : {CompressionAlgorithm::NONE, CompressionAlgorithm::ZLIB}) {
        BatchPacket batch(algorithm);
        PlayStatusPacket status(PlayStatusPacket::Status::LOGIN_SUCCESS);
        TransferPacket transfer("10.0.0.1", 19132);
        batch.addPacket(status);
        batch.addPacket(transfer);
        ByteBuffer frame;
        frame.writeInteger<uint8_t>(0xFE);
        batch.encode(frame);

        auto packets = packetsOf(frame, algorithm);
        ASSERT_EQ(packets.size(), 2u);
        EXPECT_BYTES(packets[0], "82 00 00 00 00 00");
        EXPECT_BYTES(packets[1], "D5 00 88 00 31 30 2E 30 2E 30 2E 31 BC 4A");
    }
}

TEST_F(BatchPacketTest, FirstByteOfAReceivedFrameIsNotLookedAt) {
    auto packets = packetsOf(bufferFromHex("00 82 00 01 02"), CompressionAlgorithm::NONE);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_BYTES(packets[0], "01 02");
}

TEST_F(BatchPacketTest, EmptyPayloadAndLoneIdByteGiveNoPacketsWithoutCompression) {
    EXPECT_TRUE(packetsOf(ByteBuffer(), CompressionAlgorithm::NONE).empty());
    EXPECT_TRUE(packetsOf(bufferFromHex("FE"), CompressionAlgorithm::NONE).empty());
}

TEST_F(BatchPacketTest, ZeroLengthEntryGivesAnEmptySlice) {
    auto packets = packetsOf(bufferFromHex("FE 00 81 00 07"), CompressionAlgorithm::NONE);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].readableBytes(), 0u);
    EXPECT_BYTES(packets[1], "07");
}

TEST_F(BatchPacketTest, BytesBehindTheFinalDeflateBlockAreIgnored) {
    auto compressed = deflateRaw(bytesFromHex("81 00 09")).value();
    compressed.push_back(0x55);
    compressed.push_back(0xAA);
    auto inflated = inflateRaw(compressed);
    ASSERT_TRUE(inflated);
    EXPECT_BYTES(ByteBuffer(*inflated), "81 00 09");
}

TEST_F(BatchPacketTest, DeflatingNothingGivesAValidEmptyStream) {
    auto compressed = deflateRaw({});
    ASSERT_TRUE(compressed);
    EXPECT_FALSE(compressed->empty());
    auto inflated = inflateRaw(*compressed);
    ASSERT_TRUE(inflated);
    EXPECT_TRUE(inflated->empty());
}

using BatchPacketDeathTest = BatchPacketTest;

TEST_F(BatchPacketDeathTest, EmptyCompressedPayloadIsFatal) {
    EXPECT_DEATH(packetsOf(ByteBuffer(), CompressionAlgorithm::ZLIB), "");
    EXPECT_DEATH(packetsOf(bufferFromHex("FE"), CompressionAlgorithm::ZLIB), "");
}

TEST_F(BatchPacketDeathTest, CutDeflateStreamIsFatal) {
    std::vector<uint8_t> payload(200, 0x42);
    auto compressed = deflateRaw(payload).value();
    ByteBuffer frame = bufferFromHex("FE");
    frame.writeBytes(std::span<const uint8_t>(compressed).first(compressed.size() - 2));
    EXPECT_DEATH(packetsOf(frame, CompressionAlgorithm::ZLIB), "");
}

TEST_F(BatchPacketDeathTest, EntryLongerThanTheBatchIsFatal) {
    EXPECT_DEATH(packetsOf(bufferFromHex("FE 85 00 01 02"), CompressionAlgorithm::NONE), "");
}

TEST_F(BatchPacketDeathTest, LengthVarIntCutShortIsFatal) {
    EXPECT_DEATH(packetsOf(bufferFromHex("FE 81"), CompressionAlgorithm::NONE), "");
}

TEST(BatchPacketWithoutServerDeathTest, BuildingABatchWithoutAServerIsFatal) {
    EXPECT_DEATH(
        {
            ServerLink::install(nullptr);
            BatchPacket batch(CompressionAlgorithm::NONE);
        },
        "");
}

}  // namespace
}  // namespace ferrylink::bridge
