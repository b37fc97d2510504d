#include "bridge/packets/login_packet.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bridge/packets/packet_writer.h"
#include "bridge/packets/web_token.h"
#include "support/hex.h"
#include "test_server_link.h"

namespace ferrylink::bridge {
namespace {

using foundation::ByteBuffer;
using nlohmann::json;

std::string base64Url(std::string_view bytes, bool padded = false) {
    std::string text = encodeBase64Url(bytes);
    return padded ? text + std::string((4 - text.size() % 4) % 4, '=') : text;
}

std::string token(const json& body, bool padded = false) {
    return base64Url(R"({"alg":"ES384","x5u":"key"})", padded) + "." + base64Url(body.dump(), padded) + ".c2ln";
}

json identityBody(std::string name, std::string xuid = "") {
    return {{"extraData", {{"XUID", xuid}, {"identity", "6f1c-uuid"}, {"displayName", name}}},
            {"identityPublicKey", "MHYwEAYHKoZIzj0CAQ"}};
}

// The login body as a client sends it: protocol, then the connection request
// with the identity and the client data token, each behind its length.
ByteBuffer loginBodyWith(int32_t protocol, const std::string& identity, const std::string& clientData = "x.y.z") {
    ByteBuffer request;
    request.writeInteger<int32_t>(static_cast<int32_t>(identity.size()), foundation::Endianness::little);
    request.writeBytes(identity);
    request.writeInteger<int32_t>(static_cast<int32_t>(clientData.size()), foundation::Endianness::little);
    request.writeBytes(clientData);
    ByteBuffer body;
    body.writeInteger<int32_t>(protocol, foundation::Endianness::big);
    PacketWriter(body, PacketWriter::VarInts::minimal).varint(request.readableBytes());
    body.writeBuffer(request);
    return body;
}

std::string chainOf(const std::vector<std::string>& tokens) { return json{{"chain", tokens}}.dump(); }

class LoginPacketTest : public ::testing::Test {
protected:
    void SetUp() override { server = testing::TestServerLink::installNew(); }

    static LoginPacket decode(ByteBuffer body) {
        auto login = LoginPacket::decode(body);
        EXPECT_TRUE(login) << login.error();
        return login ? *login : LoginPacket{};
    }
    static std::string failure(ByteBuffer body) {
        auto login = LoginPacket::decode(body);
        return login ? std::string("accepted") : login.error();
    }

    std::shared_ptr<testing::TestServerLink> server;
};

TEST_F(LoginPacketTest, EveryEnvelopeNamesThePlayer) {
    json xboxToken = {{"xname", "Gamertag"}, {"xid", "2535"}, {"cpk", "MHYwEAYH"}};
    json anonymousToken = {{"cpk", "MHYwEAYH"}};
    std::string clientData = token({{"ThirdPartyName", "Offline"}, {"GameVersion", "1.26.44"}});
    std::string certificate = chainOf({token(identityBody("Steve"))});
    struct Case {
        std::string identity;
        std::string name;
        std::string xuid;
    };
    const Case cases[] = {
        // A chain of one self-signed token, as a console that isn't signed in.
        {chainOf({token(identityBody("Steve"))}), "Steve", ""},
        // Three tokens, identity in the last; the first two are passed over.
        {chainOf({token({{"certificateAuthority", true}, {"identityPublicKey", "root"}}),
                  token({{"identityPublicKey", "mid"}}), token(identityBody("Alex", "2535"))}),
         "Alex", "2535"},
        // A later token with identity overwrites an earlier one.
        {chainOf({token(identityBody("First")), token(identityBody("Second"))}), "Second", ""},
        {chainOf({token(identityBody("Pad"), true)}), "Pad", ""},
        // From v818: the chain's JSON as the text of a Certificate.
        {json{{"AuthenticationType", 2}, {"Certificate", certificate}, {"Token", ""}}.dump(), "Steve", ""},
        // From v944: no certificate, the token names the player...
        {json{{"AuthenticationType", 0}, {"Certificate", ""}, {"Token", token(xboxToken)}}.dump(), "Gamertag", "2535"},
        {json{{"AuthenticationType", 2}, {"Certificate", R"({"chain":[""]})"}, {"Token", token(xboxToken)}}.dump(),
         "Gamertag", "2535"},
        // ... or, without a name in it, the client data does.
        {json{{"AuthenticationType", 2}, {"Certificate", ""}, {"Token", token(anonymousToken)}}.dump(), "Offline", ""},
        {json{{"Token", ""}}.dump(), "Offline", ""},
        // A chain without identity, or a name left empty, is a failed login.
        {chainOf({}), "", ""},
        {chainOf({token(identityBody(""))}), "", ""},
        {chainOf({token({{"extraData", "text"}})}), "", ""},
    };
    for (const auto& c : cases) {
        auto login = decode(loginBodyWith(2193, c.identity, clientData));
        EXPECT_EQ(login.displayName, c.name) << c.identity;
        EXPECT_EQ(login.XUID, c.xuid) << c.identity;
        EXPECT_EQ(login.protocolVersion, 2193);
    }
    EXPECT_TRUE(server->lines().empty());
}

TEST_F(LoginPacketTest, ChainLoginsKeepTheirIdentityAndNeverReadTheClientData) {
    auto login = decode(loginBodyWith(560, chainOf({token(identityBody("Steve"))}), "\xFF garbage"));
    EXPECT_EQ(login.identity, "6f1c-uuid");
    EXPECT_EQ(login.publicKey, "MHYwEAYHKoZIzj0CAQ");
    // The protocol is big-endian, the identity's length little-endian.
    ByteBuffer body = loginBodyWith(560, "{}");
    EXPECT_BYTES(ByteBuffer(body.getBytes(0, 4).value()), "00 00 02 30");
    EXPECT_EQ(body.getInteger<int32_t>(5, foundation::Endianness::little), 2);
}

TEST_F(LoginPacketTest, TokensThatDontDecodeAreLoggedAndPassedOver) {
    auto headerOk = base64Url(R"({"alg":"none"})");
    auto login = decode(loginBodyWith(
        408, chainOf({"a.b.c.d", "onlyone", headerOk + ".@@@.sig", headerOk + "." + base64Url("[1,2]") + ".sig",
                      token(identityBody("Steve"))})));
    EXPECT_EQ(login.displayName, "Steve");
    EXPECT_EQ(server->lines(),
              (std::vector<std::string>{
                  "Malformed jwt token a.b.c.d has 4 parts when it should have 3 parts",
                  "Malformed jwt token onlyone has 1 parts when it should have 3 parts",
                  "Malformed jwt token, failed to decode base64Url value @@@",
                  "Malformed jwt token, failed to parse JSON value from base64Url " + base64Url("[1,2]"),
              }));
}

TEST_F(LoginPacketTest, LoginsThatMakeNoSenseFailWithTheirReason) {
    json noName = {{"extraData", {{"XUID", ""}, {"identity", "id"}}}, {"identityPublicKey", "k"}};
    json numericXuid = {{"extraData", {{"XUID", 1}, {"identity", "id"}, {"displayName", "n"}}},
                        {"identityPublicKey", "k"}};
    json noKey = {{"extraData", {{"XUID", ""}, {"identity", "id"}, {"displayName", "n"}}}};
    const std::pair<ByteBuffer, std::string> cases[] = {
        {testing::bufferFromHex("00 00 02"), "login cut short"},
        {testing::bufferFromHex("00 00 02 30 85"), "login cut short"},
        {testing::bufferFromHex("00 00 02 30 81 00 01"), "login identity cut short"},
        // The identity's length reaches past the request.
        {testing::bufferFromHex("00 00 02 30 06 10 00 00 00 7B 7D"), "login identity cut short"},
        {testing::bufferFromHex("00 00 02 30 06 FF FF FF FF 7B 7D"), "login identity cut short"},
        {loginBodyWith(408, "{not json"), "login identity is not JSON"},
        {loginBodyWith(408, "[]"), "login identity is not JSON"},
        {loginBodyWith(408, R"({"other":[]})"), "login carries neither a chain nor a token"},
        {loginBodyWith(408, R"({"chain":"text"})"), "login chain is not a list"},
        {loginBodyWith(408, R"({"chain":[1]})"), "login chain holds something else than tokens"},
        {loginBodyWith(818, R"({"Certificate":7})"), "login certificate is not text"},
        {loginBodyWith(818, R"({"Certificate":"{oops"})"), "login certificate is not JSON"},
        {loginBodyWith(408, chainOf({token(noName)})), "login identity token lacks a name, an id or a key"},
        {loginBodyWith(408, chainOf({token(numericXuid)})), "login identity token lacks a name, an id or a key"},
        {loginBodyWith(408, chainOf({token(noKey)})), "login identity token lacks a name, an id or a key"},
    };
    for (const auto& [body, reason] : cases) {
        EXPECT_EQ(failure(body), reason) << testing::hexOf(body);
    }
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

}  // namespace
}  // namespace ferrylink::bridge
