#include "app/web/web_routes.h"

#include <charconv>

#include "app/web/access_token.h"
#include "app/web/event_stream.h"
#include "app/web/page_assets.h"
#include "app/web/web_events.h"

namespace ferrylink::app {

using http::HttpError;
using httplib::Request;
using httplib::Response;
using nlohmann::json;

namespace {

constexpr const char* kDocumentPolicy =
    "default-src 'self'; img-src 'self' data:; style-src 'self'; script-src 'self'; connect-src 'self'; "
    "frame-ancestors 'none'; base-uri 'none'; form-action 'none'";

std::string pageMember(const json& body) {
    auto found = body.find("page");
    if (found == body.end() || !found->is_string() || !isPageId(found->get<std::string>())) {
        throw HttpError{400, "the member 'page' is missing or not a page id"};
    }
    return found->get<std::string>();
}

std::optional<uint64_t> decimalId(std::string_view text) {
    uint64_t id = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return id;
}

void sendAsset(Response& response, const PageAsset& asset) {
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_content(asset.bytes.data(), asset.bytes.size(), std::string(asset.contentType));
}

void sendDocument(Response& response) {
    const PageAsset* document = findPageAsset("/index.html");
    if (document == nullptr) {
        throw HttpError{404, "this build has no page"};
    }
    response.set_header("Content-Security-Policy", kDocumentPolicy);
    response.set_header("Referrer-Policy", "no-referrer");
    response.set_header("Cache-Control", "no-store");
    sendAsset(response, *document);
}

json webAppManifest(const std::string& startUrl) {
    json icons = json::array();
    for (int size : {192, 512}) {
        std::string sizes = std::to_string(size) + "x" + std::to_string(size);
        icons.push_back({{"src", "/icons/icon-" + std::to_string(size) + ".png"}, {"sizes", sizes}, {"type", "image/png"}});
    }
    icons.push_back({{"src", "/icons/icon-512.png"}, {"sizes", "512x512"}, {"type", "image/png"}, {"purpose", "maskable"}});
    icons.push_back({{"src", "/icons/icon.svg"}, {"sizes", "any"}, {"type", "image/svg+xml"}});
    return {{"name", "Ferrylink"},
            {"short_name", "Ferrylink"},
            {"description", "Makes a Bedrock server show up as a LAN game, so consoles can join it."},
            {"id", "/"},
            {"start_url", startUrl},
            {"scope", "/"},
            {"display", "standalone"},
            {"orientation", "portrait"},
            {"background_color", "#000000"},
            {"theme_color", "#000000"},
            {"icons", icons}};
}

}  // namespace

bool isDocumentRoute(const http::Route& route) { return route.path == "/" || route.path == "/index.html"; }

http::RouteTable webRoutes(std::shared_ptr<WebSession> session, MainQueueGate& gate,
                           std::chrono::milliseconds keepalive, std::string token) {
    http::RouteTable routes;
    auto document = [](const Request&, Response& response) { sendDocument(response); };
    routes.add({"GET", "/", document}).add({"GET", "/index.html", document});
    // What a phone needs to put the app on its home screen. The app it opens
    // from there keeps the token, when the page that asked had the right one.
    routes.add({"GET", "/manifest.webmanifest",
                [token](const Request& request, Response& response) {
                    std::string start = "/";
                    if (!token.empty() && sameAccessToken(request.get_param_value("token"), token)) {
                        start += "?token=" + token;
                    }
                    response.set_header("Cache-Control", "no-store");
                    response.set_content(http::compactJson(webAppManifest(start)), "application/manifest+json");
                },
                /*guarded=*/false});
    // The same for every install and holding no state: relative module
    // imports can't carry the token, so these go without.
    for (const auto& asset : pageAssets()) {
        if (asset.path == "/index.html") {
            continue;
        }
        routes.add({"GET", std::string(asset.path),
                    [&asset](const Request&, Response& response) {
                        response.set_header("Cache-Control", "no-cache");
                        sendAsset(response, asset);
                    },
                    /*guarded=*/false});
    }

    routes.add({"GET", "/events", [session, &gate, keepalive](const Request& request, Response& response) {
        std::string page = request.get_param_value("page");
        if (!isPageId(page)) {
            throw HttpError{400, "the parameter 'page' is missing or not a page id"};
        }
        auto stream = std::make_shared<EventStream>();
        gate.run([&] { session->openStream(page, stream); });
        sendEventStream(response, stream, keepalive, [weak = std::weak_ptr(session), stream, page] {
            foundation::DispatchQueue::main().async([weak, stream, page] {
                if (auto live = weak.lock()) {
                    live->closeStream(page, stream);
                }
            });
        });
    }});

    // Each action answers once it has run on the main queue.
    auto action = [&routes, &gate](const char* method, const char* path, auto work) {
        routes.add({method, path, [&gate, work](const Request& request, Response& response) {
            response.status = 204;
            work(request, response, gate);
        }});
    };
    action("POST", "/api/form", [session](const Request& request, Response&, MainQueueGate& gate) {
        json body = http::objectBody(request);
        std::string ip = http::stringMember(body, "ip");
        std::string port = http::stringMember(body, "port");
        gate.run([&] { session->setFields(ip, port); });
    });
    action("POST", "/api/run", [session](const Request& request, Response&, MainQueueGate& gate) {
        json body = http::objectBody(request);
        std::string ip = http::stringMember(body, "ip");
        std::string port = http::stringMember(body, "port");
        // Name look-up and bind included.
        gate.run([&] { session->runOrStop(ip, port); });
    });
    action("POST", "/api/alert/dismiss", [session](const Request& request, Response&, MainQueueGate& gate) {
        std::string alert = http::oneOfMember(http::objectBody(request), "alert",
                                              {"emptyIpAlert", "hypixelAlert", "invalidIp", "bindFailedAlert"});
        gate.run([&] { session->dismissAlert(alert); });
    });
    action("POST", "/api/favourites", [session](const Request& request, Response& response, MainQueueGate& gate) {
        json body = http::objectBody(request);
        std::string ip = http::stringMember(body, "ip");
        std::string port = http::stringMember(body, "port");
        ServerRow row;
        gate.run([&] { row = session->addToFavorites(ip, port); });
        response.set_header("Cache-Control", "no-store");
        http::sendJson(response, 201, serverRowData(row));
    });
    action("DELETE", "/api/favourites/*", [session](const Request& request, Response&, MainQueueGate& gate) {
        auto id = decimalId(std::string_view(request.path).substr(std::string_view("/api/favourites/").size()));
        bool deleted = false;
        if (id) {
            gate.run([&] { deleted = session->deleteFavourite(*id); });
        }
        if (!deleted) {
            throw HttpError{404, "no such favourite"};
        }
    });
    action("POST", "/api/featured", [session](const Request& request, Response&, MainQueueGate& gate) {
        bool featured = http::booleanMember(http::objectBody(request), "featured");
        gate.run([&] { session->setFeatured(featured); });
    });
    action("POST", "/api/message/dismiss", [session](const Request& request, Response&, MainQueueGate& gate) {
        std::string key = http::stringMember(http::objectBody(request), "key");
        bool dismissed = false;
        gate.run([&] { dismissed = session->dismissMessageForGood(key); });
        if (!dismissed) {
            throw HttpError{409, "no message with that key is waiting"};
        }
    });
    action("POST", "/api/appear", [session](const Request& request, Response&, MainQueueGate& gate) {
        json body = http::objectBody(request);
        std::string page = pageMember(body);
        http::oneOfMember(body, "screen", {"ConnectView"});
        gate.run([&] { session->connectViewAppeared(page); });
    });
    action("POST", "/api/scene", [session](const Request& request, Response&, MainQueueGate& gate) {
        json body = http::objectBody(request);
        std::string page = pageMember(body);
        auto report = pageReportNamed(http::oneOfMember(body, "phase", {"visible", "hidden"}));
        gate.run([&] { session->reportScene(page, *report); });
    });
    return routes;
}

}  // namespace ferrylink::app
