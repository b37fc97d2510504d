#include "app/web/json_http.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <exception>

namespace ferrylink::http {

using nlohmann::json;

namespace {

constexpr const char* kJsonType = "application/json";

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

const json& member(const json& body, const char* name, json::value_t type, const char* typeName) {
    auto found = body.find(name);
    if (found == body.end()) {
        throw HttpError{400, std::string("the member '") + name + "' is missing"};
    }
    if (found->type() != type) {
        throw HttpError{400, std::string("the member '") + name + "' must be a " + typeName};
    }
    return *found;
}

// The words for a refusal that httplib made itself, before any handler of
// ours ran.
std::string libraryRefusal(int status, std::size_t maxBodyBytes) {
    switch (status) {
        case 400: return "the request could not be read";
        case 413: return "the body is over " + std::to_string(maxBodyBytes / 1024) + " KiB";
        case 414: return "the request target is too long";
        default: return status < 500 ? "the request was refused" : "the server failed to answer";
    }
}

// A request answered before its body was read leaves that body on the
// connection, where it would be taken for the next request: close instead.
void closeIfBodyUnread(const httplib::Request& request, httplib::Response& response) {
    std::string length = request.get_header_value("Content-Length");
    if (request.has_header("Transfer-Encoding") || (!length.empty() && length != "0")) {
        response.set_header("Connection", "close");
    }
}

void refuseEarly(const httplib::Request& request, httplib::Response& response, const HttpError& error) {
    sendError(response, error);
    closeIfBodyUnread(request, response);
}

// The announced body length when it is a number; none otherwise (httplib
// refuses the rest).
std::optional<unsigned long long> contentLength(const httplib::Request& request) {
    std::string text = request.get_header_value("Content-Length");
    unsigned long long length = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return length;
}

}  // namespace

std::string compactJson(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

void sendJson(httplib::Response& response, int status, const json& body) {
    response.status = status;
    response.set_content(compactJson(body), kJsonType);
}

void sendError(httplib::Response& response, const HttpError& error) {
    if (!error.allow.empty()) {
        response.set_header("Allow", error.allow);
    }
    response.set_header("Cache-Control", "no-store");
    if (!error.plainText.empty()) {
        response.status = error.status;
        response.set_content(error.plainText, "text/plain; charset=utf-8");
        return;
    }
    sendJson(response, error.status, {{"error", error.message}});
}

bool isJsonMediaType(std::string_view contentType) {
    std::string_view type = trimmed(contentType.substr(0, contentType.find(';')));
    constexpr std::string_view expected = kJsonType;
    return std::equal(type.begin(), type.end(), expected.begin(), expected.end(),
                      [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
}

json objectBody(const httplib::Request& request) {
    if ((request.has_header("Content-Type") || !request.body.empty()) &&
        !isJsonMediaType(request.get_header_value("Content-Type"))) {
        throw HttpError{415, "the body must be of type application/json"};
    }
    json body = json::parse(request.body, nullptr, /*allow_exceptions=*/false);
    if (body.is_discarded()) {
        throw HttpError{400, "the body is not valid JSON"};
    }
    if (!body.is_object()) {
        throw HttpError{400, "the body is not a JSON object"};
    }
    return body;
}

std::string stringMember(const json& body, const char* name) {
    return member(body, name, json::value_t::string, "string").get<std::string>();
}

bool booleanMember(const json& body, const char* name) {
    return member(body, name, json::value_t::boolean, "boolean").get<bool>();
}

std::string oneOfMember(const json& body, const char* name, std::initializer_list<std::string_view> values) {
    std::string value = stringMember(body, name);
    if (std::find(values.begin(), values.end(), value) == values.end()) {
        std::string list;
        for (auto allowed : values) {
            list += list.empty() ? "" : ", ";
            list += allowed;
        }
        throw HttpError{400, std::string("the member '") + name + "' must be one of " + list};
    }
    return value;
}

bool Route::matches(std::string_view requestPath) const {
    if (path.ends_with("/*")) {
        std::string_view folder = std::string_view(path).substr(0, path.size() - 1);
        return requestPath.size() > folder.size() && requestPath.starts_with(folder);
    }
    return requestPath == path;
}

std::string_view Route::tail(std::string_view requestPath) const {
    return requestPath.substr(std::min(requestPath.size(), path.size() - 1));
}

RouteTable& RouteTable::add(Route route) {
    routes_.push_back(std::move(route));
    return *this;
}

const Route* RouteTable::anyOf(std::string_view path) const {
    auto found = std::find_if(routes_.begin(), routes_.end(), [&](const Route& route) { return route.matches(path); });
    return found == routes_.end() ? nullptr : &*found;
}

const Route& RouteTable::find(std::string_view method, std::string_view path) const {
    std::string allow;
    for (const auto& route : routes_) {
        if (!route.matches(path)) {
            continue;
        }
        // httplib answers HEAD with the GET handler, less the body.
        if (route.method == method || (route.method == "GET" && method == "HEAD")) {
            return route;
        }
        allow += allow.empty() ? "" : ", ";
        allow += route.method == "GET" ? "GET, HEAD" : route.method;
    }
    if (allow.empty()) {
        throw HttpError{404, "no such path"};
    }
    throw HttpError{405, "this path takes " + allow + " only", allow};
}

void RouteTable::install(httplib::Server& server, BodyLimit limit, Guard guard, FailureSink failures) const {
    server.set_payload_max_length(limit.maxBodyBytes);
    // Decided before httplib reads a body: a refused request is answered at
    // once, whatever it carries or announces.
    server.set_pre_routing_handler([this, limit, guard](const httplib::Request& request, httplib::Response& response) {
        try {
            const Route* route = anyOf(request.path);
            if (guard) {
                guard(request, route);
            }
            find(request.method, request.path);
            // Answered before a byte of it is read; the connection's gentle
            // close lets the client read the answer.
            if (auto length = contentLength(request); length && *length > limit.maxBodyBytes) {
                throw HttpError{413, libraryRefusal(413, limit.maxBodyBytes)};
            }
        } catch (const HttpError& error) {
            refuseEarly(request, response, error);
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    auto dispatch = [this](const httplib::Request& request, httplib::Response& response) {
        try {
            find(request.method, request.path).handler(request, response);
        } catch (const HttpError& error) {
            sendError(response, error);
        }
    };
    server.Get(".*", dispatch);
    server.Post(".*", dispatch);
    server.Put(".*", dispatch);
    server.Patch(".*", dispatch);
    server.Delete(".*", dispatch);
    server.Options(".*", dispatch);

    // The library's own refusals (a request it can't read, a body over the
    // limit) get the same JSON body as ours.
    server.set_error_handler(httplib::Server::HandlerWithResponse(
        [limit](const httplib::Request&, httplib::Response& response) {
            if (!response.body.empty()) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            sendJson(response, response.status, {{"error", libraryRefusal(response.status, limit.maxBodyBytes)}});
            return httplib::Server::HandlerResponse::Handled;
        }));
    server.set_exception_handler([failures](const httplib::Request& request, httplib::Response& response,
                                            std::exception_ptr thrown) {
        std::string what = "unknown exception";
        try {
            std::rethrow_exception(thrown);
        } catch (const std::exception& exception) {
            what = exception.what();
        } catch (...) {
        }
        if (failures) {
            failures(request, what);
        }
        sendError(response, HttpError{500, "the server failed to answer"});
    });
}

}  // namespace ferrylink::http
