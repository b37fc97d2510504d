#include "app/web/web_server.h"

#include <httplib.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <future>
#include <thread>

#include "app/web/access_token.h"
#include "app/web/event_stream.h"
#include "app/web/page_assets.h"
#include "app/web/web_events.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

using foundation::DispatchQueue;
using nlohmann::json;

namespace {

constexpr size_t kBodyLimit = 64 * 1024;
// Threads for connections: every open stream holds one for as long as it
// is open, and browsers keep a few idle connections besides.
constexpr size_t kConnectionThreads = 64;
// How often a stream's thread looks whether its peer is still there.
constexpr std::chrono::milliseconds kStreamPoll{250};

constexpr const char* kDocumentPolicy =
    "default-src 'self'; img-src 'self' data:; style-src 'self'; script-src 'self'; connect-src 'self'; "
    "frame-ancestors 'none'; base-uri 'none'; form-action 'none'";
constexpr const char* kMissingTokenPage =
    "This address lacks its access token. Open the address that ferrylink printed when it started.\n";

// A refusal: its status, its one line for a developer, and for 405 the
// methods that the path takes.
struct HttpError {
    int status;
    std::string message;
    std::string allow = {};
};

void sendError(httplib::Response& response, const HttpError& error) {
    response.status = error.status;
    if (!error.allow.empty()) {
        response.set_header("Allow", error.allow);
    }
    response.set_header("Cache-Control", "no-store");
    response.set_content(compactJson({{"error", error.message}}), "application/json");
}

void requireMethod(const httplib::Request& request, std::initializer_list<std::string_view> methods) {
    std::string allow;
    for (auto method : methods) {
        if (request.method == method) {
            return;
        }
        allow += allow.empty() ? "" : ", ";
        allow += method;
    }
    throw HttpError{405, "this path takes " + allow + " only", allow};
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower;
}

// The media type of a Content-Type header, without its parameters.
std::string mediaType(std::string_view header) {
    header = header.substr(0, header.find(';'));
    while (!header.empty() && std::isspace(static_cast<unsigned char>(header.front()))) {
        header.remove_prefix(1);
    }
    while (!header.empty() && std::isspace(static_cast<unsigned char>(header.back()))) {
        header.remove_suffix(1);
    }
    return lowerCase(header);
}

json jsonBody(const httplib::Request& request) {
    if ((request.has_header("Content-Type") || !request.body.empty()) &&
        mediaType(request.get_header_value("Content-Type")) != "application/json") {
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

const json& member(const json& body, const char* name, json::value_t type, const char* typeName) {
    auto found = body.find(name);
    if (found == body.end()) {
        throw HttpError{400, std::string("the member '") + name + "' is missing"};
    }
    // A JSON number may come as signed, unsigned or float; only strings and
    // booleans are asked for here.
    if (found->type() != type) {
        throw HttpError{400, std::string("the member '") + name + "' must be a " + typeName};
    }
    return *found;
}

std::string stringMember(const json& body, const char* name) {
    return member(body, name, json::value_t::string, "string").get<std::string>();
}

bool boolMember(const json& body, const char* name) {
    return member(body, name, json::value_t::boolean, "boolean").get<bool>();
}

std::string pageMember(const json& body) {
    auto found = body.find("page");
    if (found == body.end() || !found->is_string() || !isPageId(found->get<std::string>())) {
        throw HttpError{400, "the member 'page' is missing or not a page id"};
    }
    return found->get<std::string>();
}

std::string oneOf(const json& body, const char* name, std::initializer_list<std::string_view> values) {
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

std::optional<uint64_t> decimalId(std::string_view text) {
    uint64_t id = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return id;
}

// A path whose raw form hides a separator or climbs is refused as a whole,
// whatever it would decode to.
bool isSuspiciousTarget(std::string_view target) {
    std::string path = lowerCase(target.substr(0, target.find('?')));
    return path.find("%2f") != std::string::npos || path.find("%5c") != std::string::npos ||
           path.find('\\') != std::string::npos || path.find("..") != std::string::npos ||
           path.find("%2e%2e") != std::string::npos;
}

std::string addressText(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = {};
    socklen_t length = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (::getnameinfo(address, length, text, sizeof(text), nullptr, 0, NI_NUMERICHOST) != 0) {
        return {};
    }
    return text;
}

// The machine's addresses of one family (AF_INET or AF_INET6), interfaces
// that are up only, link-local IPv6 left out (it needs a zone in a URL).
std::vector<std::string> localAddressesOf(int family) {
    std::vector<std::string> addresses;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return addresses;
    }
    for (auto* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != family || !(entry->ifa_flags & IFF_UP)) {
            continue;
        }
        if (family == AF_INET6) {
            auto* v6 = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
            if (IN6_IS_ADDR_LINKLOCAL(&v6->sin6_addr)) {
                continue;
            }
        }
        if (auto text = addressText(entry->ifa_addr); !text.empty()) {
            addresses.push_back(text);
        }
    }
    ::freeifaddrs(list);
    return addresses;
}

}  // namespace

class WebServer::Impl {
public:
    Impl(AppCore& core, WebServerOptions options)
        : core_(core), options_(std::move(options)), loopback_(isLoopbackHost(options_.listen.host)) {
        if (!options_.fixedToken.empty()) {
            if (!isAccessTokenText(options_.fixedToken)) {
                throw std::invalid_argument("an access token is 32 lower-case hex digits");
            }
            token_ = options_.fixedToken;
        } else if (!loopback_) {
            token_ = makeAccessToken();
        }
    }

    // Without stop() the main queue is not asked for anything: the session
    // goes with its own destructor, which is safe from any thread.
    ~Impl() {
        if (!stopped_.exchange(true)) {
            closing_ = true;
            http_.stop();
            if (listener_.joinable()) {
                listener_.join();
            }
        }
    }

    void start() {
        session_ = WebSession::make(core_, options_.timings);
        session_->start();

        http_.new_task_queue = [] { return new httplib::ThreadPool(kConnectionThreads); };
        http_.set_payload_max_length(kBodyLimit);
        http_.set_tcp_nodelay(true);
        // One request per connection, and a connection that brings none
        // within a second is dropped: an idle connection holds a thread until
        // then, and stop() waits for every thread.
        http_.set_keep_alive_max_count(1);
        http_.set_keep_alive_timeout(1);
        auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            handle(request, response);
        };
        // One handler for every method, so that a known path with another
        // method is a 405 of ours and not the library's 404.
        http_.Get(".*", handler);
        http_.Post(".*", handler);
        http_.Put(".*", handler);
        http_.Patch(".*", handler);
        http_.Delete(".*", handler);
        http_.Options(".*", handler);
        // The library's own refusals (a body over the limit, a request it
        // can't read) get the same JSON body as ours.
        http_.set_error_handler(httplib::Server::HandlerWithResponse([](const httplib::Request&,
                                                                        httplib::Response& response) {
            if (!response.body.empty()) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            std::string message = response.status == 413 ? "the body is over 64 KiB" : "the request was refused";
            response.set_content(compactJson({{"error", message}}), "application/json");
            return httplib::Server::HandlerResponse::Handled;
        }));
        http_.set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
            sendError(response, HttpError{500, "the server failed to answer"});
        });

        const auto& listen = options_.listen;
        errno = 0;
        if (listen.port == 0) {
            port_ = http_.bind_to_any_port(listen.host);
        } else {
            port_ = http_.bind_to_port(listen.host, listen.port) ? listen.port : -1;
        }
        if (port_ < 0) {
            int error = errno;
            session_->stop();
            throw WebServerError("cannot listen on " + urlHost(listen.host) + ":" + std::to_string(listen.port) +
                                 (error != 0 ? std::string(": ") + std::strerror(error) : std::string()));
        }
        listener_ = std::thread([this] { http_.listen_after_bind(); });
    }

    void stop() {
        if (stopped_.exchange(true)) {
            return;
        }
        closing_ = true;
        if (session_) {
            // Ends the streams, so their threads let go of their connections.
            auto session = session_;
            if (DispatchQueue::main().isCurrent()) {
                session->stop();
            } else {
                std::promise<void> done;
                DispatchQueue::main().async([&] {
                    session->stop();
                    done.set_value();
                });
                done.get_future().wait();
            }
        }
        http_.stop();
        if (listener_.joinable()) {
            listener_.join();
        }
    }

    int port() const { return port_; }
    const std::string& token() const { return token_; }

    std::vector<std::string> pageAddresses() const {
        const std::string& host = options_.listen.host;
        std::vector<std::string> hosts;
        if (host == "0.0.0.0" || host == "::") {
            hosts = localAddressesOf(AF_INET);
            if (host == "::") {
                auto v6 = localAddressesOf(AF_INET6);
                hosts.insert(hosts.end(), v6.begin(), v6.end());
            }
        }
        // A phone needs a network address; this machine's own browser can
        // do with any, so loopback goes last.
        std::stable_partition(hosts.begin(), hosts.end(), [](const std::string& each) { return !isLoopbackHost(each); });
        if (hosts.empty()) {
            hosts.push_back(host);
        }
        std::vector<std::string> addresses;
        for (const auto& each : hosts) {
            std::string address = "http://" + urlHost(each) + ":" + std::to_string(port_) + "/";
            if (!token_.empty()) {
                address += "?token=" + token_;
            }
            addresses.push_back(address);
        }
        return addresses;
    }

private:
    // Runs `work` on the main queue and waits for it. False, without running
    // it, once the server is closing.
    template <typename Work>
    bool onMain(Work&& work) {
        if (closing_) {
            return false;
        }
        std::promise<bool> done;
        DispatchQueue::main().async([this, &work, &done] {
            if (closing_) {
                done.set_value(false);
                return;
            }
            try {
                work();
                done.set_value(true);
            } catch (...) {
                done.set_exception(std::current_exception());
            }
        });
        return done.get_future().get();
    }

    template <typename Work>
    void onMainOrUnavailable(Work&& work) {
        if (!onMain(std::forward<Work>(work))) {
            throw HttpError{503, "ferrylink is shutting down"};
        }
    }

    void handle(const httplib::Request& request, httplib::Response& response) {
        try {
            route(request, response);
        } catch (const HttpError& error) {
            sendError(response, error);
        }
    }

    void route(const httplib::Request& request, httplib::Response& response) {
        // On loopback the token is absent; the Host header keeps web sites
        // that rebind a name of theirs to 127.0.0.1 from reaching the API.
        if (loopback_ && !isLoopbackHost(hostOfHostHeader(request.get_header_value("Host")))) {
            throw HttpError{403, "the Host header names no loopback address"};
        }
        if (isSuspiciousTarget(request.target)) {
            throw HttpError{404, "no such path"};
        }
        const std::string& path = request.path;

        if (path != "/index.html") {
            if (const PageAsset* asset = findPageAsset(path)) {
                requireMethod(request, {"GET", "HEAD"});
                response.set_header("X-Content-Type-Options", "nosniff");
                response.set_header("Cache-Control", "no-cache");
                response.set_content(asset->bytes.data(), asset->bytes.size(), std::string(asset->contentType));
                return;
            }
        }

        bool isDocument = path == "/" || path == "/index.html";
        if (!isDocument && path != "/events" && !path.starts_with("/api/")) {
            throw HttpError{404, "no such path"};
        }
        if (!token_.empty() && !sameAccessToken(request.get_param_value("token"), token_)) {
            if (isDocument) {
                response.status = 401;
                response.set_header("Cache-Control", "no-store");
                response.set_content(kMissingTokenPage, "text/plain; charset=utf-8");
                return;
            }
            throw HttpError{401, "missing or wrong access token"};
        }

        if (isDocument) {
            serveDocument(request, response);
        } else if (path == "/events") {
            requireMethod(request, {"GET"});
            openStream(request, response);
        } else if (path.starts_with("/api/favourites/")) {
            requireMethod(request, {"DELETE"});
            deleteFavourite(path.substr(std::string_view("/api/favourites/").size()), response);
        } else {
            action(path, request, response);
        }
    }

    void serveDocument(const httplib::Request& request, httplib::Response& response) {
        requireMethod(request, {"GET", "HEAD"});
        const PageAsset* document = findPageAsset("/index.html");
        if (document == nullptr) {
            throw HttpError{404, "this build has no page"};
        }
        response.set_header("Content-Security-Policy", kDocumentPolicy);
        response.set_header("Referrer-Policy", "no-referrer");
        response.set_header("X-Content-Type-Options", "nosniff");
        response.set_header("Cache-Control", "no-store");
        response.set_content(document->bytes.data(), document->bytes.size(), std::string(document->contentType));
    }

    void openStream(const httplib::Request& request, httplib::Response& response) {
        std::string page = request.get_param_value("page");
        if (!isPageId(page)) {
            throw HttpError{400, "the parameter 'page' is missing or not a page id"};
        }
        auto stream = std::make_shared<EventStream>();
        onMainOrUnavailable([&] { session_->openStream(page, stream); });

        response.set_header("Cache-Control", "no-store");
        response.set_header("X-Accel-Buffering", "no");
        struct Progress {
            std::chrono::steady_clock::time_point lastWrite = std::chrono::steady_clock::now();
        };
        auto progress = std::make_shared<Progress>();
        std::chrono::milliseconds keepalive = options_.keepalive;
        // The library asks for more after each call, and checks between calls
        // that the peer is still there; the wait bounds how late it notices.
        response.set_chunked_content_provider(
            "text/event-stream",
            [stream, progress, keepalive](size_t, httplib::DataSink& sink) {
                auto text = stream->take(kStreamPoll);
                if (!text) {
                    sink.done();
                    return true;
                }
                auto now = std::chrono::steady_clock::now();
                if (text->empty()) {
                    if (now - progress->lastWrite < keepalive) {
                        return true;
                    }
                    text = ": keepalive\n\n";
                }
                progress->lastWrite = now;
                return sink.write(text->data(), text->size());
            },
            [session = std::weak_ptr(session_), stream, page](bool) {
                DispatchQueue::main().async([session, stream, page] {
                    if (auto live = session.lock()) {
                        live->closeStream(page, stream);
                    }
                });
            });
    }

    void deleteFavourite(std::string_view idText, httplib::Response& response) {
        auto id = decimalId(idText);
        bool deleted = false;
        if (id) {
            onMainOrUnavailable([&] { deleted = session_->deleteFavourite(*id); });
        }
        if (!deleted) {
            throw HttpError{404, "no such favourite"};
        }
        response.status = 204;
    }

    void action(const std::string& path, const httplib::Request& request, httplib::Response& response) {
        static const std::vector<std::string_view> actions = {
            "/api/run",   "/api/alert/dismiss", "/api/favourites", "/api/featured",
            "/api/message/dismiss", "/api/appear", "/api/scene"};
        if (std::find(actions.begin(), actions.end(), path) == actions.end()) {
            throw HttpError{404, "no such path"};
        }
        requireMethod(request, {"POST"});
        json body = jsonBody(request);
        response.status = 204;

        if (path == "/api/run") {
            std::string page = pageMember(body);
            std::string ip = stringMember(body, "ip");
            std::string port = stringMember(body, "port");
            // Answers once the action has run, name look-up and bind included.
            onMainOrUnavailable([&] { session_->runOrStop(page, ip, port); });
        } else if (path == "/api/alert/dismiss") {
            std::string page = pageMember(body);
            std::string alert = oneOf(body, "alert", {"emptyIpAlert", "hypixelAlert", "invalidIp"});
            onMainOrUnavailable([&] { session_->dismissAlert(page, alert); });
        } else if (path == "/api/favourites") {
            std::string ip = stringMember(body, "ip");
            std::string port = stringMember(body, "port");
            ServerRow row;
            onMainOrUnavailable([&] { row = session_->addToFavorites(ip, port); });
            response.status = 201;
            response.set_header("Cache-Control", "no-store");
            response.set_content(compactJson(serverRowData(row)), "application/json");
        } else if (path == "/api/featured") {
            bool featured = boolMember(body, "featured");
            onMainOrUnavailable([&] { session_->setFeatured(featured); });
        } else if (path == "/api/message/dismiss") {
            std::string key = stringMember(body, "key");
            bool dismissed = false;
            onMainOrUnavailable([&] { dismissed = session_->dismissMessageForGood(key); });
            if (!dismissed) {
                throw HttpError{409, "no message with that key is waiting"};
            }
        } else if (path == "/api/appear") {
            std::string page = pageMember(body);
            oneOf(body, "screen", {"ConnectView"});
            onMainOrUnavailable([&] { session_->connectViewAppeared(page); });
        } else if (path == "/api/scene") {
            std::string page = pageMember(body);
            auto report = pageReportNamed(oneOf(body, "phase", {"active", "inactive", "hidden"}));
            onMainOrUnavailable([&] { session_->reportScene(page, *report); });
        }
    }

    AppCore& core_;
    WebServerOptions options_;
    bool loopback_;
    std::string token_;
    std::shared_ptr<WebSession> session_;
    httplib::Server http_;
    std::thread listener_;
    int port_ = -1;
    std::atomic<bool> closing_{false};
    std::atomic<bool> stopped_{false};
};

WebServer::WebServer(AppCore& core, WebServerOptions options)
    : impl_(std::make_unique<Impl>(core, std::move(options))) {}

WebServer::~WebServer() = default;

void WebServer::start() { impl_->start(); }

int WebServer::port() const { return impl_->port(); }

const std::string& WebServer::token() const { return impl_->token(); }

std::vector<std::string> WebServer::pageAddresses() const { return impl_->pageAddresses(); }

void WebServer::stop() { impl_->stop(); }

}  // namespace ferrylink::app
