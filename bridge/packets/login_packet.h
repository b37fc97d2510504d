#pragma once

#include <cstdint>
#include <string>

#include "foundation/byte_buffer.h"
#include "foundation/expected.h"

namespace ferrylink::bridge {

// The client's login: its game protocol number and who the player is. Only
// ever decoded, and not verified: signatures, keys and times of validity are
// never looked at, since the bridge only walks the client to its transfer.
//
// Who the player is comes in one of three envelopes, by the client's age:
// - {"chain": [token, …]}: the token with "extraData" names the player;
// - from v818, {"AuthenticationType": n, "Certificate": "<the chain's JSON
//   as a string>", "Token": "…"};
// - from v944 also with an empty Certificate: then the Token's claims name
//   the player ("xname"), or, without them, the client data token behind the
//   identity ("ThirdPartyName").
class LoginPacket {
public:
    static constexpr uint8_t networkId = 1;

    std::string XUID;
    std::string identity;
    // Empty when no token carried a name: a failed login, answered as such.
    std::string displayName;
    int32_t protocolVersion = 408;
    std::string publicKey;

    // Reads the body behind the header. A token that doesn't decode is logged
    // through the current server and passed over; bytes or an envelope that
    // make no sense are a failure with its reason.
    static foundation::Expected<LoginPacket> decode(foundation::ByteBuffer& body);
};

}  // namespace ferrylink::bridge
