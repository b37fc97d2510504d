#include "bridge/packets/batch_packet.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bridge/packets/play_status_packet.h"
#include "bridge/packets/raw_deflate.h"
#include "support/hex.h"
#include "test_server_link.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using testing::bytesFromHex;
using testing::hexOf;

constexpr BatchFraming raw{};
constexpr BatchFraming deflated{CompressionAlgorithm::ZLIB, false};
// v649 on, once compression is on.
constexpr BatchFraming named{CompressionAlgorithm::ZLIB, true};

class BatchFramingTest : public ::testing::Test {
protected:
    void SetUp() override { testing::TestServerLink::installNew(); }

    static ByteBuffer frameOf(DataPacket& packet, BatchFraming framing) {
        BatchPacket batch(framing);
        batch.addPacket(packet);
        ByteBuffer frame;
        PacketWriter out(frame);
        batch.encodeHeader(out);
        batch.encode(out);
        return frame;
    }

    // The packets of a received frame behind its first byte, or why not.
    static std::string receive(std::vector<uint8_t> body, BatchFraming framing) {
        BatchPacket batch(framing);
        ByteBuffer buffer(body);
        auto decoded = batch.decode(buffer);
        if (!decoded) {
            return decoded.error();
        }
        auto packets = batch.getPackets();
        if (!packets) {
            return packets.error();
        }
        std::string text;
        for (const auto& packet : *packets) {
            text += "[" + hexOf(packet) + "]";
        }
        return text;
    }
};

// Deflated frames, with and without their algorithm byte, are read by the real
// clients of the compatibility suite, every version of them.
TEST_F(BatchFramingTest, SendsARawFrameAsItStands) {
    PlayStatusPacket status(PlayStatusPacket::Status::PLAYER_SPAWN);
    EXPECT_BYTES(frameOf(status, raw), "FE 86 00 82 00 00 00 00 03");
    // A packet encoded before adds an empty entry.
    EXPECT_BYTES(frameOf(status, raw), "FE 00");
}

TEST_F(BatchFramingTest, ReadsEachFramingAndRefusesWhatMakesNoSense) {
    auto deflate = [](std::string_view hex) { return deflateRaw(bytesFromHex(hex)).value(); };
    auto led = [](uint8_t algorithm, std::vector<uint8_t> rest) {
        rest.insert(rest.begin(), algorithm);
        return rest;
    };
    struct Case {
        std::vector<uint8_t> body;
        BatchFraming framing;
        std::string outcome;
    };
    const Case cases[] = {
        {bytesFromHex("82 00 01 02 81 00 07"), raw, "[01 02][07]"},
        {{}, raw, ""},
        {bytesFromHex("00 81 00 07"), raw, "[][07]"},
        {deflate("82 00 01 02"), deflated, "[01 02]"},
        // Before v649 a client may leave a small batch raw, unmarked.
        {bytesFromHex("82 00 01 02"), deflated, "[01 02]"},
        {{}, deflated, ""},
        {led(0x00, deflate("82 00 01 02")), named, "[01 02]"},
        {led(0xFF, bytesFromHex("82 00 01 02")), named, "[01 02]"},
        {led(0x01, bytesFromHex("82 00 01 02")), named, "batch compressed with Snappy"},
        {led(0x7E, bytesFromHex("82 00 01 02")), named, "batch names an unknown compression 7E"},
        {led(0x00, bytesFromHex("82 00 01 02")), named, "batch does not inflate"},
        {{}, named, "batch without its compression byte"},
        {bytesFromHex("85 00 01 02"), raw, "batch entry runs past the end"},
        {bytesFromHex("81"), raw, "batch entry runs past the end"},
        // What inflates past the limit is not a game client's batch.
        {led(0x00, deflateRaw(std::vector<uint8_t>(BatchPacket::inflateLimit + 1, 0)).value()), named,
         "batch does not inflate"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(receive(c.body, c.framing), c.outcome) << hexOf(c.body);
    }
}

TEST_F(BatchFramingTest, LengthsGoThroughTheProtocolVarIntWriter) {
    // 256 leaves as the lone byte 00, which a client reads as an empty entry:
    // the form our peers expect.
    struct Sized : DataPacket {
        Sized() : DataPacket(1) {}
        void encode(PacketWriter& out) const override { out.bytes(std::vector<uint8_t>(254, 0x78)); }
    } of256;
    EXPECT_BYTES(ByteBuffer(frameOf(of256, raw).getBytes(0, 4).value()), "FE 00 81 00");
}

}  // namespace
}  // namespace ferrylink::bridge
