#include "bridge/packets/login_packet.h"

#include <nlohmann/json.hpp>
#include <optional>

#include "bridge/packets/web_token.h"
#include "bridge/server_link.h"
#include "foundation/codecs.h"
#include "foundation/printable_text.h"

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::Expected;
using foundation::unexpected;
using nlohmann::json;

namespace {

// One of the two texts of the connection request, behind its little-endian length.
std::optional<std::string> readText(ByteBuffer& request) {
    auto length = request.readInteger<int32_t>(foundation::Endianness::little);
    if (!length || *length < 0) {
        return std::nullopt;
    }
    auto bytes = request.readBytes(*length);
    if (!bytes) {
        return std::nullopt;
    }
    return std::string(bytes->begin(), bytes->end());
}

std::optional<WebToken> decodeToken(const std::string& text) {
    auto token = WebToken::decode(text);
    if (!token) {
        ServerLink::current()->print(foundation::printable(token.error()));
        return std::nullopt;
    }
    return *token;
}

// The array of tokens: at the top of the identity, or inside a Certificate
// that holds the same JSON as text. Null when the login carries no chain.
Expected<json> chainOf(const json& envelope) {
    const json* holder = &envelope;
    json certificate;
    auto certificateText = envelope.find("Certificate");
    if (certificateText != envelope.end()) {
        if (!certificateText->is_string()) {
            return unexpected("login certificate is not text");
        }
        if (certificateText->get_ref<const std::string&>().empty()) {
            return json();
        }
        certificate = json::parse(certificateText->get_ref<const std::string&>(), nullptr, false);
        if (certificate.is_discarded() || !certificate.is_object()) {
            return unexpected("login certificate is not JSON");
        }
        holder = &certificate;
    }
    auto chain = holder->find("chain");
    if (chain == holder->end()) {
        return json();
    }
    if (!chain->is_array()) {
        return unexpected("login chain is not a list");
    }
    return *chain;
}

std::optional<std::string> stringMember(const json& object, std::string_view name) {
    auto member = object.find(name);
    if (member == object.end() || !member->is_string()) {
        return std::nullopt;
    }
    return member->get<std::string>();
}

// A later token with identity overwrites what an earlier one gave; tokens
// without it, or that don't decode, are passed over. Inside a certificate an
// empty token stands for no chain at all and is passed over without a word.
Expected<LoginPacket> readChain(LoginPacket login, const json& chain, bool inCertificate) {
    for (const auto& entry : chain) {
        if (!entry.is_string()) {
            return unexpected("login chain holds something else than tokens");
        }
        if (inCertificate && entry.get_ref<const std::string&>().empty()) {
            continue;
        }
        auto token = decodeToken(entry.get<std::string>());
        if (!token) {
            continue;
        }
        auto extraData = token->body().find("extraData");
        if (extraData == token->body().end() || !extraData->is_object()) {
            continue;
        }
        auto xuid = stringMember(*extraData, "XUID");
        auto identity = stringMember(*extraData, "identity");
        auto displayName = stringMember(*extraData, "displayName");
        auto publicKey = token->claimString("identityPublicKey");
        if (!xuid || !identity || !displayName || !publicKey) {
            return unexpected("login identity token lacks a name, an id or a key");
        }
        login.XUID = *xuid;
        login.identity = *identity;
        login.displayName = *displayName;
        login.publicKey = *publicKey;
    }
    return login;
}

}  // namespace

Expected<LoginPacket> LoginPacket::decode(ByteBuffer& body) {
    LoginPacket login;
    // The one big-endian field next to little-endian ones.
    auto protocol = body.readInteger<int32_t>(foundation::Endianness::big);
    auto requestLength = foundation::readVarInt(body);
    auto request = requestLength ? body.readSlice(static_cast<uint32_t>(*requestLength)) : std::nullopt;
    if (!protocol || !request) {
        return unexpected("login cut short");
    }
    login.protocolVersion = *protocol;
    auto identityText = readText(*request);
    if (!identityText) {
        return unexpected("login identity cut short");
    }
    auto envelope = json::parse(*identityText, nullptr, false);
    if (envelope.is_discarded() || !envelope.is_object()) {
        return unexpected("login identity is not JSON");
    }
    auto chain = chainOf(envelope);
    if (!chain) {
        return unexpected(chain.error());
    }
    // The envelope of v818 on says who the player is in a token as well.
    bool envelopeWithToken = envelope.contains("Certificate") || envelope.contains("Token");
    if (chain->is_array()) {
        auto read = readChain(login, *chain, envelopeWithToken);
        if (!read || !read->displayName.empty() || !envelopeWithToken) {
            return read;
        }
        login = *read;
    }

    // No name from a chain: the token's claims, else the client's own data.
    auto tokenText = stringMember(envelope, "Token");
    if (tokenText && !tokenText->empty()) {
        if (auto token = decodeToken(*tokenText)) {
            login.displayName = token->claimString("xname").value_or("");
            login.XUID = token->claimString("xid").value_or("");
            login.publicKey = token->claimString("cpk").value_or("");
        }
    }
    if (login.displayName.empty()) {
        auto clientDataText = readText(*request);
        auto clientData = clientDataText ? decodeToken(*clientDataText) : std::nullopt;
        if (clientData) {
            login.displayName = clientData->claimString("ThirdPartyName").value_or("");
        }
    }
    if (!tokenText && login.displayName.empty()) {
        return unexpected("login carries neither a chain nor a token");
    }
    return login;
}

}  // namespace ferrylink::bridge
