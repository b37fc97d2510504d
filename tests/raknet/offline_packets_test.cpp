#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <functional>
#include <tuple>

#include "foundation/byte_buffer.h"
#include "raknet/packets/acknowledge_packet.h"
#include "raknet/packets/connected_packets.h"
#include "raknet/packets/datagram.h"
#include "raknet/packets/encapsulated_packet.h"
#include "raknet/packets/offline_packets.h"
#include "raknet/packets/wire.h"
#include "raknet/server_info.h"
#include "support/hex.h"

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using foundation::SocketAddress;
using ferrylink::testing::bufferFromHex;
using ferrylink::testing::bytesFromHex;

constexpr const char* MAGIC_HEX = "00 FF FF 00 FE FE FE FE FD FD FD FD 12 34 56 78";

std::string withMagic(const std::string& before, const std::string& after) {
    return before + " " + MAGIC_HEX + " " + after;
}

SocketAddress v4(const char* text, uint16_t port) { return SocketAddress::makeResolving(text, port); }

// --- Addresses and strings ------------------------------------------------------

TEST(RakNetAddressTest, IPv4IsWrittenWithComplementedBytes) {
    ByteBuffer buffer;
    writeAddress(buffer, v4("192.168.1.5", 19132));
    EXPECT_BYTES(buffer, "04 3F 57 FE FA 4A BC");
}

TEST(RakNetAddressTest, IPv6TakesTwentyNineBytesWithItsOwnFamilyConstant) {
    ByteBuffer buffer;
    writeAddress(buffer, SocketAddress::makeResolving("::1", 19133));
    EXPECT_BYTES(buffer, "06 00 0A 4A BD 00 00 00 00  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01  00 00 00 00");
}

TEST(RakNetAddressTest, ReadsBothFormsBack) {
    auto buffer = bufferFromHex("04 80 FF FF FE 4A BC  06 00 0A 4A BD 00 00 00 00"
                                " 20 01 0D B8 00 00 00 00 00 00 00 00 00 00 00 07  00 00 00 00");
    auto first = readAddress(buffer);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->kind(), SocketAddress::Kind::v4);
    EXPECT_EQ(*first->ipAddress(), "127.0.0.1");
    EXPECT_EQ(*first->port(), 19132);
    auto second = readAddress(buffer);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->kind(), SocketAddress::Kind::v6);
    EXPECT_EQ(*second->ipAddress(), "2001:db8::7");
    EXPECT_EQ(*second->port(), 19133);
    EXPECT_EQ(buffer.readableBytes(), 0u);
}

TEST(RakNetAddressTest, UnknownVersionOrNothingLeftGivesTheDefault) {
    auto buffer = bufferFromHex("05 AA BB CC");
    auto address = readAddress(buffer);
    EXPECT_EQ(address, SocketAddress::makeResolving("0.0.0.0", 19132));
    EXPECT_EQ(buffer.readerIndex(), 1u);  // only the version byte
    ByteBuffer empty;
    EXPECT_EQ(readAddress(empty), SocketAddress::makeResolving("0.0.0.0", 19132));
}

TEST(RakNetAddressTest, WriteIPv4DropsEmptyPieces) {
    ByteBuffer buffer;
    writeIPv4(buffer, "1..2.3.4.", 1);
    EXPECT_BYTES(buffer, "04 FE FD FC FB 00 01");
}

TEST(RakNetAddressTest, LocalDomainAddressWritesNothing) {
    ByteBuffer buffer;
    writeAddress(buffer, SocketAddress::unixDomain("/tmp/x"));
    EXPECT_EQ(buffer.readableBytes(), 0u);
}

TEST(RakNetStringTest, EmptyTextIsTwoZeroBytes) {
    ByteBuffer buffer;
    writeString(buffer, "");
    EXPECT_BYTES(buffer, "00 00");
}

TEST(RakNetStringTest, LengthCountsUtf8Bytes) {
    ByteBuffer buffer;
    writeString(buffer, "Caf\xC3\xA9");
    EXPECT_BYTES(buffer, "00 05 43 61 66 C3 A9");
    EXPECT_EQ(readString(buffer), "Caf\xC3\xA9");
}

TEST(RakNetStringTest, InvalidUtf8IsRepairedNotRefused) {
    auto buffer = bufferFromHex("00 03 41 C3 28");
    EXPECT_EQ(readString(buffer), "A\xEF\xBF\xBD(");
}

// --- Offline packets ------------------------------------------------------------

TEST(OfflinePacketTest, UnconnectedPingRoundTrip) {
    UnconnectedPing ping;
    ping.clientTime = 1000;
    ping.clientId = 42;
    ByteBuffer buffer;
    ping.encode(buffer);
    EXPECT_BYTES(buffer, withMagic("01 00 00 00 00 00 00 03 E8", "00 00 00 00 00 00 00 2A"));
    EXPECT_EQ(buffer.readableBytes(), 33u);

    UnconnectedPing decoded;
    ASSERT_TRUE(decoded.decode(buffer));
    EXPECT_EQ(decoded.clientTime, 1000);
    EXPECT_EQ(decoded.clientId, 42);
    EXPECT_TRUE(decoded.hasValidMagic());
}

struct RequestOneCase {
    size_t length;
    std::string versionAndPadding;
    int32_t protocolVersion;
};

class RequestOneTest : public ::testing::TestWithParam<RequestOneCase> {};

TEST_P(RequestOneTest, MtuIsTheDatagramLengthAndTheVersionASignedByte) {
    std::vector<uint8_t> bytes = bytesFromHex(withMagic("05", GetParam().versionAndPadding));
    bytes.resize(GetParam().length, 0xAB);
    ByteBuffer buffer(bytes);
    OpenConnectionRequest1 request;
    ASSERT_TRUE(request.decode(buffer));
    EXPECT_EQ(request.mtu, static_cast<int32_t>(GetParam().length));
    EXPECT_EQ(request.protocolVersion, GetParam().protocolVersion);
    EXPECT_TRUE(request.hasValidMagic());
    EXPECT_EQ(buffer.readableBytes(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Requests, RequestOneTest,
                         ::testing::Values(RequestOneCase{1492, "0B", 11}, RequestOneCase{18, "0A", 10},
                                           RequestOneCase{20, "FF 00 00", -1}),
                         [](const auto& info) { return "Of" + std::to_string(info.param.length) + "Bytes"; });

TEST(OfflinePacketTest, RequestTwo) {
    auto buffer = bufferFromHex(withMagic("07", "04 80 FF FF FE 4A BC 05 DC 00 00 00 00 00 00 00 2A FF"));
    OpenConnectionRequest2 request;
    ASSERT_TRUE(request.decode(buffer));
    EXPECT_EQ(*request.address->ipAddress(), "127.0.0.1");
    EXPECT_EQ(*request.address->port(), 19132);
    EXPECT_EQ(request.mtu, 1500);
    EXPECT_EQ(request.clientId, 42);
    EXPECT_EQ(buffer.readableBytes(), 1u);  // left unread
}

TEST(OfflinePacketTest, ReplyTwoWithoutAddressNamesTheDefault) {
    OpenConnectionReply2 reply;
    reply.serverId = 1;
    reply.mtu = 548;
    ByteBuffer buffer;
    reply.encode(buffer);
    EXPECT_BYTES(buffer, withMagic("08", "00 00 00 00 00 00 00 01 04 FF FF FF FF 4A BC 02 24 00"));
}

// --- The advert -----------------------------------------------------------------

TEST(ServerInfoTest, AdvertJoinsNineFieldsWithoutQuoting) {
    EXPECT_EQ(ServerInfo("Ferrylink", "Join me!", 560, "1.19.50", 0, 99, "Creative", 42).description(),
              "MCPE;Ferrylink;560;1.19.50;0;99;42;Join me!;Creative");
    EXPECT_EQ(ServerInfo("m", "n", 1, "v", 2, 3, "g", -7).description(), "MCPE;m;1;v;2;3;-7;n;g");
    // A semicolon in the motd is sent as it is, and shifts whoever reads it.
    EXPECT_EQ(ServerInfo("a;5", "n", 6, "7", 0, 99, "g", 42).description(), "MCPE;a;5;6;7;0;99;42;n;g");
}

// The parser reads by position, ignores piece six and what follows piece
// eight, and always gives serverId 1.
struct ParseCase {
    const char* advert;
    std::string motd;
    int32_t protocolVersion;
    std::string version;
    int32_t currentPlayers;
    int32_t maxPlayers;
    std::string name;
    std::string gamemode;
};

class ServerInfoParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ServerInfoParseTest, ReadsEachPieceByItsPosition) {
    auto parsed = ServerInfo::parse(GetParam().advert);
    ASSERT_TRUE(parsed);
    const auto& want = GetParam();
    EXPECT_EQ(std::tie(parsed->motd, parsed->protocolVersion, parsed->version, parsed->currentPlayers,
                       parsed->maxPlayers, parsed->name, parsed->gamemode),
              std::tie(want.motd, want.protocolVersion, want.version, want.currentPlayers, want.maxPlayers, want.name,
                       want.gamemode));
    EXPECT_EQ(parsed->serverId, 1);
}

INSTANTIATE_TEST_SUITE_P(Adverts, ServerInfoParseTest,
                         ::testing::Values(ParseCase{"XXXX;a;1;b;2;3;4;c;d", "a", 1, "b", 2, 3, "c", "d"},
                                           ParseCase{"MCPE;m;+5;v;-1;10;;n;g;x;y;z", "m", 5, "v", -1, 10, "n", "g"},
                                           ParseCase{"MCPE;a;5;6;7;0;99;42;n;g", "a", 5, "6", 7, 0, "42", "n"}));

TEST(ServerInfoTest, AdvertsThatCantBeReadGiveNothing) {
    for (const char* advert : {"MCPE;m;560;v;0;99;42;n", "MCPE;m;;v;0;99;42;n;g", "MCPE;m;560;v;zero;99;42;n;g",
                               "MCPE;m;560;v;0;+-1;42;n;g"}) {
        EXPECT_FALSE(ServerInfo::parse(advert)) << advert;
    }
}

// What a peer sends and can't be read, offline or on a connection: each
// decoder fails, and the listener or the connection drops that peer; never
// the end of the process.
struct MalformedCase {
    const char* name;
    std::string hex;
    std::function<bool(ByteBuffer&)> decode;
};

class MalformedInputTest : public ::testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedInputTest, DecoderFails) {
    auto bytes = bufferFromHex(GetParam().hex);
    EXPECT_FALSE(GetParam().decode(bytes));
}

template <typename P>
bool decodes(ByteBuffer& bytes) {
    return static_cast<bool>(P().decode(bytes));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, MalformedInputTest,
    ::testing::Values(
        MalformedCase{"EmptyDatagram", "", decodes<UnconnectedPing>},
        MalformedCase{"PingCutInItsClientId", withMagic("01 00 00 00 00 00 00 00 01", "00 00"), decodes<UnconnectedPing>},
        MalformedCase{"RequestOneOfSeventeenBytes", withMagic("05", ""), decodes<OpenConnectionRequest1>},
        MalformedCase{"RequestTwoCutInItsAddress", withMagic("07", "04 80 FF"), decodes<OpenConnectionRequest2>},
        MalformedCase{"RequestTwoWithAShortIPv6Address", withMagic("07", "06 00 0A 4A BD 00 00"),
                      decodes<OpenConnectionRequest2>},
        MalformedCase{"PongWithItsAdvertPastTheEnd",
                      withMagic("1C 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 02", "00 05 41"), decodes<UnconnectedPong>},
        MalformedCase{"PongWithANegativeAdvertLength",
                      withMagic("1C 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 02", "FF FF 41"), decodes<UnconnectedPong>},
        MalformedCase{"FrameCutInItsPayload", "00 00 18 AA BB", decodes<EncapsulatedPacket>},
        MalformedCase{"FrameCutInItsHeader", "60 00 08 01 00", decodes<EncapsulatedPacket>},
        MalformedCase{"SplitFrameCutInItsSplitFields", "10 00 08 00 00 00 03 00", decodes<EncapsulatedPacket>},
        MalformedCase{"FrameLongerThan65528Bits", "00 FF F9 00", decodes<EncapsulatedPacket>},
        MalformedCase{"DatagramCutInItsNumber", "84 00", decodes<Datagram>},
        MalformedCase{"DatagramWithATruncatedSecondFrame", "84 00 00 00  00 00 08 15  40 00", decodes<Datagram>},
        MalformedCase{"AcknowledgementWithANegativeCount", "C0 80 00", decodes<ACK>},
        MalformedCase{"AcknowledgementCutInARecord", "C0 00 01 00 01 00 00 02", decodes<ACK>},
        MalformedCase{"AcknowledgementRangeRunningBackwards", "A0 00 01 00 05 00 00 02 00 00", decodes<NACK>},
        MalformedCase{"TruncatedConnectedPing", "00 00 00 01", decodes<ConnectedPing>},
        MalformedCase{"TruncatedConnectionRequest", "09 00 00 00 00 00 00 00 07 00 00", decodes<ConnectionRequest>},
        MalformedCase{"NewIncomingConnectionWithoutTimestamps", "13 04 80 FF FF FE 4A BC 00 00",
                      decodes<NewIncomingConnection>}),
    [](const auto& info) { return info.param.name; });

using OfflinePacketDeathTest = ::testing::Test;

TEST_F(OfflinePacketDeathTest, OutOfRangeFieldsOfOurOwnEndTheProcessOnEncoding) {
    IncompatibleProtocolVersion incompatible;
    incompatible.protocolVersion = 256;
    ByteBuffer buffer;
    EXPECT_DEATH(incompatible.encode(buffer), "");
    OpenConnectionReply1 reply;
    reply.mtu = 40000;
    EXPECT_DEATH(reply.encode(buffer), "");
    EXPECT_DEATH(writeString(buffer, std::string(32768, 'x')), "");
}

}  // namespace
}  // namespace ferrylink::raknet
