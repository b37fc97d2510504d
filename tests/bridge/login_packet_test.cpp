#include "bridge/packets/login_packet.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bridge/packets/web_token.h"
#include "support/hex.h"
#include "test_server_link.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using nlohmann::json;

std::string base64Url(std::string_view bytes, bool padded = false) {
    static constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    uint32_t bits = 0;
    int count = 0;
    for (unsigned char c : bytes) {
        bits = bits << 8 | c;
        count += 8;
        while (count >= 6) {
            count -= 6;
            text += alphabet[(bits >> count) & 0x3F];
        }
    }
    if (count > 0) {
        text += alphabet[(bits << (6 - count)) & 0x3F];
    }
    while (padded && text.size() % 4 != 0) {
        text += '=';
    }
    return text;
}

std::string token(const json& body, bool padded = false) {
    return base64Url(R"({"alg":"ES384","x5u":"key"})", padded) + "." + base64Url(body.dump(), padded) + ".c2ln";
}

json identityBody(std::string name, std::string xuid = "") {
    return {{"extraData", {{"XUID", xuid}, {"identity", "6f1c-uuid"}, {"displayName", name}}},
            {"identityPublicKey", "MHYwEAYHKoZIzj0CAQ"}};
}

// The standard base-128 form that clients write.
void writeClientVarInt(ByteBuffer& buffer, uint32_t value) {
    while (value >= 0x80) {
        buffer.writeInteger<uint8_t>(static_cast<uint8_t>(value | 0x80));
        value >>= 7;
    }
    buffer.writeInteger<uint8_t>(static_cast<uint8_t>(value));
}

// The login body as a client sends it: protocol, then the connection request
// with the chain and whatever comes behind it.
ByteBuffer loginBodyWithChain(int32_t protocol, const std::string& chainText, std::string_view trailing = std::string_view("\x04\x00\x00\x00" "abcd", 8)) {
    ByteBuffer request;
    request.writeInteger<int32_t>(static_cast<int32_t>(chainText.size()), foundation::Endianness::little);
    request.writeBytes(chainText);
    request.writeBytes(trailing);
    ByteBuffer body;
    body.writeInteger<int32_t>(protocol, foundation::Endianness::big);
    writeClientVarInt(body, request.readableBytes());
    body.writeBuffer(request);
    return body;
}

ByteBuffer loginBody(int32_t protocol, const std::vector<std::string>& tokens) {
    return loginBodyWithChain(protocol, json{{"chain", tokens}}.dump());
}

class LoginPacketTest : public ::testing::Test {
protected:
    void SetUp() override { server = testing::TestServerLink::installNew(); }

    LoginPacket decode(ByteBuffer body) {
        LoginPacket packet;
        packet.decode(body);
        return packet;
    }

    std::shared_ptr<testing::TestServerLink> server;
};

TEST_F(LoginPacketTest, SelfSignedTokenWithEmptyXuidIsAccepted) {
    auto packet = decode(loginBody(560, {token(identityBody("Steve"))}));
    EXPECT_EQ(packet.protocolVersion, 560);
    EXPECT_EQ(packet.displayName, "Steve");
    EXPECT_EQ(packet.XUID, "");
    EXPECT_EQ(packet.identity, "6f1c-uuid");
    EXPECT_EQ(packet.publicKey, "MHYwEAYHKoZIzj0CAQ");
    EXPECT_TRUE(server->lines().empty());
}

TEST_F(LoginPacketTest, ChainOfThreeTakesIdentityFromTheTokenThatHasIt) {
    json plain = {{"certificateAuthority", true}, {"identityPublicKey", "root"}};
    auto packet = decode(loginBody(408, {token(plain), token(plain), token(identityBody("Alex", "2535"))}));
    EXPECT_EQ(packet.displayName, "Alex");
    EXPECT_EQ(packet.XUID, "2535");
    EXPECT_TRUE(server->lines().empty());
}

TEST_F(LoginPacketTest, LaterTokenWithIdentityOverwritesAnEarlierOne) {
    auto packet = decode(loginBody(408, {token(identityBody("First")), token(identityBody("Second"))}));
    EXPECT_EQ(packet.displayName, "Second");
}

TEST_F(LoginPacketTest, PaddedAndUnpaddedPartsBothDecode) {
    EXPECT_EQ(decode(loginBody(408, {token(identityBody("Pad"), true)})).displayName, "Pad");
    EXPECT_EQ(decode(loginBody(408, {token(identityBody("NoPad"), false)})).displayName, "NoPad");
}

TEST_F(LoginPacketTest, FourPartTokenIsLoggedAndTheNextOneIsTried) {
    std::string fourParts = "a.b.c.d";
    auto packet = decode(loginBody(408, {fourParts, token(identityBody("Steve"))}));
    EXPECT_EQ(packet.displayName, "Steve");
    EXPECT_EQ(server->lines(),
              std::vector<std::string>{"Malformed jwt token a.b.c.d has 4 parts when it should have 3 parts"});
}

TEST_F(LoginPacketTest, TokenErrorsHaveTheirThreeTexts) {
    auto headerOk = base64Url(R"({"alg":"none"})");
    decode(loginBody(408, {"onlyone", headerOk + ".@@@.sig", headerOk + "." + base64Url("[1,2]") + ".sig"}));
    EXPECT_EQ(server->lines(),
              (std::vector<std::string>{
                  "Malformed jwt token onlyone has 1 parts when it should have 3 parts",
                  "Malformed jwt token, failed to decode base64Url value @@@",
                  "Malformed jwt token, failed to parse JSON value from base64Url " + base64Url("[1,2]"),
              }));
}

TEST_F(LoginPacketTest, EmptyDisplayNameAndEmptyChainLeaveTheNameEmpty) {
    EXPECT_EQ(decode(loginBody(408, {token(identityBody(""))})).displayName, "");
    EXPECT_EQ(decode(loginBody(408, std::vector<std::string>{})).displayName, "");
}

TEST_F(LoginPacketTest, ExtraDataThatIsNotAnObjectIsPassedOver) {
    json odd = {{"extraData", "text"}};
    EXPECT_EQ(decode(loginBody(408, {token(odd)})).displayName, "");
    EXPECT_TRUE(server->lines().empty());
}

TEST_F(LoginPacketTest, ProtocolIsBigEndianAndChainLengthLittleEndian) {
    ByteBuffer body = loginBody(560, {token(identityBody("Steve"))});
    EXPECT_BYTES(ByteBuffer(body.getBytes(0, 4).value()), "00 00 02 30");
    // Behind the request length (two bytes here) the chain length follows.
    auto chainLength = body.getInteger<int32_t>(6, foundation::Endianness::little);
    ASSERT_TRUE(chainLength);
    EXPECT_EQ(decode(body).protocolVersion, 560);
}

TEST_F(LoginPacketTest, BytesBehindTheChainMakeNoDifference) {
    std::string chainText = json{{"chain", {token(identityBody("Steve"))}}}.dump();
    EXPECT_EQ(decode(loginBodyWithChain(408, chainText, "")).displayName, "Steve");
    EXPECT_EQ(decode(loginBodyWithChain(408, chainText, "\xFF\xFF\xFF\x7F garbage")).displayName, "Steve");
}

TEST(WebTokenTest, Base64UrlAcceptsBothPaddingsAndRejectsOtherAlphabets) {
    EXPECT_EQ(decodeBase64Url("YQ"), "a");
    EXPECT_EQ(decodeBase64Url("YQ=="), "a");
    EXPECT_EQ(decodeBase64Url("YWI"), "ab");
    EXPECT_EQ(decodeBase64Url("-_8"), std::string("\xfb\xff", 2));
    EXPECT_FALSE(decodeBase64Url("+/8="));
    EXPECT_FALSE(decodeBase64Url("Y"));
    EXPECT_FALSE(decodeBase64Url("YQ="));
    EXPECT_EQ(decodeBase64Url(""), "");
}

class LoginPacketDeathTest : public LoginPacketTest {};

TEST_F(LoginPacketDeathTest, ShortInputIsFatal) {
    EXPECT_DEATH(decode(testing::bufferFromHex("00 00 02")), "");
    EXPECT_DEATH(decode(testing::bufferFromHex("00 00 02 30 85")), "");
    EXPECT_DEATH(decode(testing::bufferFromHex("00 00 02 30 85 00 01 00")), "");
    // The chain length reaches past the request.
    EXPECT_DEATH(decode(testing::bufferFromHex("00 00 02 30 06 10 00 00 00 7B 7D")), "");
}

TEST_F(LoginPacketDeathTest, BadChainJsonIsFatal) {
    EXPECT_DEATH(decode(loginBodyWithChain(408, std::string("{not json"))), "");
    EXPECT_DEATH(decode(loginBodyWithChain(408, std::string(R"({"other":[]})"))), "");
    EXPECT_DEATH(decode(loginBodyWithChain(408, std::string(R"({"chain":"text"})"))), "");
    EXPECT_DEATH(decode(loginBodyWithChain(408, std::string(R"({"chain":[1]})"))), "");
}

TEST_F(LoginPacketDeathTest, IdentityWithoutItsStringsIsFatal) {
    json noName = {{"extraData", {{"XUID", ""}, {"identity", "id"}}}, {"identityPublicKey", "k"}};
    EXPECT_DEATH(decode(loginBody(408, {token(noName)})), "");
    json numericXuid = {{"extraData", {{"XUID", 1}, {"identity", "id"}, {"displayName", "n"}}},
                        {"identityPublicKey", "k"}};
    EXPECT_DEATH(decode(loginBody(408, {token(numericXuid)})), "");
    json noKey = {{"extraData", {{"XUID", ""}, {"identity", "id"}, {"displayName", "n"}}}};
    EXPECT_DEATH(decode(loginBody(408, {token(noKey)})), "");
}

}  // namespace
}  // namespace ferrylink::bridge
