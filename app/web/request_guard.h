#pragma once

#include <httplib.h>

#include <string>

namespace ferrylink::app {

// Who may use the page's server. On a loopback listener a request must name
// a loopback host (so a web site that rebinds a name of its own to 127.0.0.1
// reaches nothing); beyond loopback it must carry the access token. A target
// whose raw form hides a separator or climbs is refused whatever it decodes to.
class RequestGuard {
public:
    // `token` empty: none is asked for.
    RequestGuard(bool loopback, std::string token) : loopback_(loopback), token_(std::move(token)) {}

    // Throws http::HttpError: 403 for a foreign Host on loopback, 404 for a
    // suspicious target, 401 for a missing or wrong token where `needsToken`.
    // `forBrowser` makes the 401 a short page instead of JSON.
    void check(const httplib::Request& request, bool needsToken, bool forBrowser) const;

    const std::string& token() const { return token_; }

private:
    bool loopback_;
    std::string token_;
};

}  // namespace ferrylink::app
