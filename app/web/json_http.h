#pragma once

// JSON over HTTP as the app's page server and the backend both speak it: one
// table of routes with their methods, refusals as {"error": "..."} with the
// right status, and the checks of a JSON object body.

#include <httplib.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace ferrylink::http {

// A refusal: its status, one line for a developer, and for a 405 the methods
// that the path takes. Thrown by handlers and checks, sent by the table.
struct HttpError {
    int status;
    std::string message;
    std::string allow = {};
    // Sent as text/plain instead of the JSON body, for a browser's eyes.
    std::string plainText = {};
};

// JSON text as it is sent: compact, UTF-8 as it is, an invalid byte replaced
// rather than thrown over.
std::string compactJson(const nlohmann::json& value);

void sendJson(httplib::Response& response, int status, const nlohmann::json& body);
// {"error": message} with the status, and Allow for a 405. Never cached.
void sendError(httplib::Response& response, const HttpError& error);

// "application/json" in any case, parameters such as a charset allowed.
bool isJsonMediaType(std::string_view contentType);

// The body as a JSON object: 415 when it is typed as anything but JSON, 400
// when it is no JSON or no object.
nlohmann::json objectBody(const httplib::Request& request);

// A member of an object body, of one JSON type; 400 when missing or of
// another type.
std::string stringMember(const nlohmann::json& body, const char* name);
bool booleanMember(const nlohmann::json& body, const char* name);
// A string member that must be one of `values`.
std::string oneOfMember(const nlohmann::json& body, const char* name, std::initializer_list<std::string_view> values);

struct Route {
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    std::string method;
    // The path exactly, or every path below it when it ends in "/*".
    std::string path;
    Handler handler;
    // Whether the server's guard must let the request through first.
    bool guarded = true;

    bool matches(std::string_view requestPath) const;
    // What a "/*" route's request path has after the route's folder.
    std::string_view tail(std::string_view requestPath) const;
};

// Limits every server of ours applies.
struct BodyLimit {
    std::size_t maxBodyBytes = 64 * 1024;
};

// The routes of one server. Installed on an httplib server, it answers a
// path it doesn't know with 404 and a known path with another method with 405
// and Allow, before a byte of the body is read, and a Content-Length over
// the limit with 413. A handler refuses by throwing HttpError;
// anything else it throws is a 500.
class RouteTable {
public:
    // Runs first for every request; refuses by throwing HttpError. `route`
    // is any route of the path (null for none), to tell the guarded ones.
    using Guard = std::function<void(const httplib::Request&, const Route* route)>;
    // Told about a handler that threw something other than HttpError.
    using FailureSink = std::function<void(const httplib::Request&, std::string_view what)>;

    RouteTable& add(Route route);

    // The route of this path and method; throws 404 or 405.
    const Route& find(std::string_view method, std::string_view path) const;
    // Any route of the path, whatever its method; null when none.
    const Route* anyOf(std::string_view path) const;

    // Routes every request of `server` through the table. The table must
    // outlive the server's serving.
    void install(httplib::Server& server, BodyLimit limit, Guard guard = {}, FailureSink failures = {}) const;

private:
    std::vector<Route> routes_;
};

}  // namespace ferrylink::http
