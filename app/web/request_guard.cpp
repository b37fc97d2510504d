#include "app/web/request_guard.h"

#include <algorithm>
#include <cctype>

#include "app/web/access_token.h"
#include "app/web/json_http.h"

namespace ferrylink::app {

namespace {

constexpr const char* kMissingTokenPage =
    "This address lacks its access token. Open the address that ferrylink printed when it started.\n";

bool isSuspiciousTarget(std::string_view target) {
    std::string path(target.substr(0, target.find('?')));
    std::transform(path.begin(), path.end(), path.begin(), [](unsigned char c) { return std::tolower(c); });
    return path.find("%2f") != std::string::npos || path.find("%5c") != std::string::npos ||
           path.find('\\') != std::string::npos || path.find("..") != std::string::npos ||
           path.find("%2e%2e") != std::string::npos;
}

}  // namespace

void RequestGuard::check(const httplib::Request& request, bool needsToken, bool forBrowser) const {
    if (loopback_ && !isLoopbackHost(hostOfHostHeader(request.get_header_value("Host")))) {
        throw http::HttpError{403, "the Host header names no loopback address"};
    }
    if (isSuspiciousTarget(request.target)) {
        throw http::HttpError{404, "no such path"};
    }
    if (needsToken && !token_.empty() && !sameAccessToken(request.get_param_value("token"), token_)) {
        throw http::HttpError{401, "missing or wrong access token", "", forBrowser ? kMissingTokenPage : ""};
    }
}

}  // namespace ferrylink::app
