// The page's HTTP contract over loopback: who gets in, and what a malformed
// request gets (and that it changes nothing).

#include "app/web/web_server.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <future>

#include <nlohmann/json.hpp>

#include "web_test_support.h"

namespace ferrylink::app {
namespace {

using nlohmann::json;
using testing::onMain;
using testing::runMainUntil;

constexpr const char* kToken = "0123456789abcdef0123456789abcdef";
const json kNewForm = {{"ip", ""},          {"port", "19132"},          {"emptyIpAlert", false}, {"hypixelAlert", false},
                       {"invalidIp", false}, {"bindFailedAlert", false}, {"bindFailure", ""}};

struct Event {
    std::string name;
    json data;
};

class WebServerTest : public ::testing::Test {
protected:
    ~WebServerTest() override {
        if (web_) {
            // Requests in flight may wait for the main queue: it runs until
            // the server has stopped.
            auto stopped = std::async(std::launch::async, [&] { web_->stop(); });
            EXPECT_TRUE(runMainUntil([&] { return isReady(stopped); }));
        }
    }

    void serve(std::string token = "") {
        web_ = std::make_unique<WebServer>(*app_.core,
                                           WebServerOptions{.listen = {"127.0.0.1", 0}, .fixedToken = std::move(token)});
        onMain([&] { web_->start(); });
    }

    // The answer's status; -1 when there was none.
    static int status(const httplib::Result& answer) { return answer ? answer->status : -1; }

    template <typename T>
    static bool isReady(const std::future<T>& future) {
        return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    // One request from a thread of its own, while this thread runs the main
    // queue that the server's handlers wait for.
    httplib::Result send(const std::function<httplib::Result(httplib::Client&)>& call) {
        auto answer = std::async(std::launch::async, [&] {
            httplib::Client client("127.0.0.1", web_->port());
            client.set_tcp_nodelay(true);
            return call(client);
        });
        EXPECT_TRUE(runMainUntil([&] { return isReady(answer); }));
        return answer.get();
    }

    httplib::Result post(const std::string& path, const std::string& body,
                         const std::string& type = "application/json") {
        return send([&](httplib::Client& client) { return client.Post(path, body, type); });
    }

    httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) {
        return send([&](httplib::Client& client) { return client.Get(path, headers); });
    }

    // Reads /events of `page` until `enough` holds for what came so far.
    std::vector<Event> readStream(const std::string& page, const std::function<bool(const std::vector<Event>&)>& enough) {
        std::vector<Event> events;
        auto reader = std::async(std::launch::async, [&] {
            httplib::Client client("127.0.0.1", web_->port());
            std::string buffer;
            return client.Get("/events?page=" + page, [&](const char* data, size_t length) {
                buffer.append(data, length);
                for (size_t end; (end = buffer.find("\n\n")) != std::string::npos; buffer.erase(0, end + 2)) {
                    std::string block = buffer.substr(0, end);
                    if (block.starts_with("event: ")) {
                        auto newline = block.find('\n');
                        events.push_back(Event{block.substr(7, newline - 7),
                                               json::parse(block.substr(newline + std::string("\ndata: ").size()))});
                    }
                }
                return !enough(events);
            });
        });
        EXPECT_TRUE(runMainUntil([&] { return isReady(reader); }));
        reader.get();
        return events;
    }

    testing::WebTestApp app_;
    std::unique_ptr<WebServer> web_;
};

TEST_F(WebServerTest, TokenGuardsTheDocumentTheStreamAndTheActionsButNotTheStaticFiles) {
    serve(kToken);
    for (const std::string token : {"", "?token=ffffffffffffffffffffffffffffffff"}) {
        auto document = get("/" + token);
        ASSERT_EQ(status(document), 401);
        EXPECT_EQ(document->get_header_value("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_NE(document->body.find("access token"), std::string::npos);

        std::string separator = token.empty() ? "?" : "&";
        auto stream = get("/events" + token + separator + "page=p");
        ASSERT_EQ(status(stream), 401);
        EXPECT_EQ(json::parse(stream->body)["error"], "missing or wrong access token");
        EXPECT_EQ(status(post("/api/run" + token, R"({"ip":"127.0.0.1","port":"1"})")), 401);
        EXPECT_EQ(status(post("/api/nothing" + token, "{}")), 401);
    }
    EXPECT_TRUE(app_.bridges.built->empty());

    auto document = get(std::string("/?token=") + kToken);
    ASSERT_EQ(status(document), 200);
    EXPECT_EQ(document->get_header_value("Referrer-Policy"), "no-referrer");
    EXPECT_NE(document->body.find("<!doctype html>"), std::string::npos);
    auto style = get("/style.css");
    ASSERT_EQ(status(style), 200);
    EXPECT_EQ(style->get_header_value("Content-Type"), "text/css; charset=utf-8");
    EXPECT_EQ(status(get("/js/main.js")), 200);
}

TEST_F(WebServerTest, ALoopbackListenerRefusesAForeignHostHeader) {
    serve();
    for (const auto& [host, expected] : std::vector<std::pair<std::string, int>>{
             {"attacker.example:8080", 403}, {"localhost.example.com", 403}, {"localhost:8080", 200},
             {"127.8.9.10:8080", 200}, {"[::1]:8080", 200}, {"::1", 200}}) {
        EXPECT_EQ(status(get("/", {{"Host", host}})), expected) << host;
    }
}

TEST_F(WebServerTest, MalformedRequestsAreRefusedWithAnErrorAndChangeNothing) {
    serve();
    struct Case {
        const char* path;
        const char* body;
    };
    const Case cases[] = {
        {"/api/run", "{not json"},
        {"/api/run", R"({"port":"1"})"},
        {"/api/run", R"({"ip":5,"port":"1"})"},
        {"/api/form", R"({"ip":"127.0.0.1","port":null})"},
        {"/api/scene", R"({"page":"a/b","phase":"visible"})"},
        {"/api/alert/dismiss", R"({"alert":"otherAlert"})"},
        {"/api/favourites", R"({"ip":"a","port":19132})"},
        {"/api/featured", R"({"featured":"false"})"},
        {"/api/message/dismiss", R"({"key":1})"},
        {"/api/scene", R"({"page":"p","phase":"background"})"},
        {"/api/appear", R"({"page":"p","screen":"HelpView"})"},
    };
    for (const auto& each : cases) {
        auto answer = post(each.path, each.body);
        ASSERT_EQ(status(answer), 400) << each.path << " " << each.body;
        EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
        EXPECT_FALSE(json::parse(answer->body)["error"].get<std::string>().empty());
    }
    EXPECT_EQ(status(post("/api/favourites", R"({"ip":"a","port":"1"})", "text/plain")), 415);
    EXPECT_EQ(status(get("/events")), 400);
    auto tooBig = post("/api/favourites", R"({"ip":")" + std::string(70 * 1024, 'a') + R"(","port":"1"})");
    ASSERT_EQ(status(tooBig), 413);
    EXPECT_TRUE(json::parse(tooBig->body).contains("error"));

    // Nothing moved: no row, no run, the switch on, and the form as new.
    auto events = readStream("p", [](const std::vector<Event>& list) { return list.size() >= 6; });
    ASSERT_GE(events.size(), 6u);
    EXPECT_EQ(events[2].data, kNewForm);
    EXPECT_EQ(events[3].data, (json{{"servers", json::array()}}));
    EXPECT_EQ(events[4].data["featured"], true);
    EXPECT_EQ(events[1].data["server"], nullptr);
    EXPECT_TRUE(app_.bridges.built->empty());
}

TEST_F(WebServerTest, PathsAndMethodsOutsideTheContract) {
    serve();
    for (const char* path : {"/api/nothing", "/API.md", "/js/", "/js%2Fmain.js", "/js/..%2fstyle.css"}) {
        EXPECT_EQ(status(get(path)), 404) << path;
    }
    for (const char* id : {"99", "x1"}) {
        auto removal = send([&](httplib::Client& client) { return client.Delete(std::string("/api/favourites/") + id); });
        EXPECT_EQ(status(removal), 404) << id;
    }
    auto wrongMethod = get("/api/run");
    ASSERT_EQ(status(wrongMethod), 405);
    EXPECT_EQ(wrongMethod->get_header_value("Allow"), "POST");
    EXPECT_EQ(status(post("/api/message/dismiss", R"({"key":"bm8="})")), 409);
}

}  // namespace
}  // namespace ferrylink::app
