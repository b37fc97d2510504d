#include "bridge/packets/login_packet.h"

#include <nlohmann/json.hpp>

#include "bridge/packets/web_token.h"
#include "bridge/server_link.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using foundation::fatalFault;
using foundation::forced;

namespace {

std::string requiredString(const nlohmann::json& object, std::string_view name) {
    auto member = object.find(name);
    if (member == object.end() || !member->is_string()) {
        fatalFault();
    }
    return member->get<std::string>();
}

}  // namespace

void LoginPacket::decode(foundation::ByteBuffer& buffer) {
    // The one big-endian field next to a little-endian one.
    protocolVersion = forced(buffer.readInteger<int32_t>(foundation::Endianness::big));
    auto requestLength = static_cast<uint32_t>(forced(foundation::readVarInt(buffer)));
    auto request = forced(buffer.readSlice(requestLength));
    auto chainLength = forced(request.readInteger<int32_t>(foundation::Endianness::little));
    auto chainBytes = forced(request.readBytes(chainLength));

    auto chain = nlohmann::json::parse(chainBytes.begin(), chainBytes.end(), nullptr, false);
    if (chain.is_discarded() || !chain.is_object()) {
        fatalFault();
    }
    auto tokens = chain.find("chain");
    if (tokens == chain.end() || !tokens->is_array()) {
        fatalFault();
    }
    // A later token with identity overwrites what an earlier one gave.
    for (const auto& entry : *tokens) {
        if (!entry.is_string()) {
            fatalFault();
        }
        std::optional<WebToken> token;
        try {
            token = WebToken::decode(entry.get<std::string>());
        } catch (const WebTokenError& error) {
            ServerLink::current()->print(error.what());
            continue;
        }
        auto extraData = token->body().find("extraData");
        if (extraData == token->body().end() || !extraData->is_object()) {
            continue;
        }
        XUID = requiredString(*extraData, "XUID");
        identity = requiredString(*extraData, "identity");
        displayName = requiredString(*extraData, "displayName");
        publicKey = forced(token->claimString("identityPublicKey"));
    }
}

}  // namespace ferrylink::bridge
