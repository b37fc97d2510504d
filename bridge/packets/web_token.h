#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "foundation/expected.h"

namespace ferrylink::bridge {

// A signed web token in compact form (three base64url parts joined by "."),
// read without any key: the login is not authenticated, so the signature, the
// header's algorithm and the times of validity are never looked at.
class WebToken {
public:
    // Fails, with the line the login logs, when the token hasn't three parts,
    // when the header or body isn't base64url (padded or not), or isn't a
    // JSON object.
    static foundation::Expected<WebToken> decode(const std::string& token);

    const nlohmann::json& header() const { return header_; }
    const nlohmann::json& body() const { return body_; }
    // The claim's text, when the body has it as a string.
    std::optional<std::string> claimString(std::string_view name) const;

private:
    WebToken(nlohmann::json header, nlohmann::json body) : header_(std::move(header)), body_(std::move(body)) {}

    nlohmann::json header_;
    nlohmann::json body_;
};

// Base64url, with or without "=" padding; nothing for any other character or
// an impossible length.
std::optional<std::string> decodeBase64Url(std::string_view text);
// Base64url as tokens carry it: no padding.
std::string encodeBase64Url(std::string_view bytes);

}  // namespace ferrylink::bridge
