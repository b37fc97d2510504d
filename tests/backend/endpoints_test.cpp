// The four endpoints over real HTTPS on loopback, as the app's backend
// client meets them: the JSON it decodes, the note it posts, and the refusals
// that must leave the server answering.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cctype>
#include <chrono>
#include <ostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "backend/backend_server.h"
#include "backend/store.h"
#include "https_client.h"
#include "test_certificate.h"

namespace ferrylink::backend {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::HttpsClient;
using testing::HttpsResponse;
using testing::TestCertificate;

std::int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

class EndpointsTest : public ::testing::Test {
protected:
    // A refusal must come as {"error": "<text>"} and nothing else.
    static void expectJsonError(const HttpsResponse& response, int status) {
        ASSERT_THAT(response.transportError, IsEmpty());
        EXPECT_EQ(response.status, status);
        EXPECT_THAT(response.header("content-type"), HasSubstr("application/json"));
        const json body = json::parse(response.body);
        ASSERT_TRUE(body.is_object()) << response.body;
        EXPECT_EQ(body.size(), 1u) << response.body;
        ASSERT_TRUE(body.contains("error") && body["error"].is_string()) << response.body;
        EXPECT_FALSE(body["error"].get<std::string>().empty());
    }

    void expectStillServing() const {
        const HttpsResponse response = client.get("/getStatus");
        ASSERT_THAT(response.transportError, IsEmpty());
        EXPECT_EQ(response.status, 200);
    }

    Store store{":memory:"};
    const TestCertificate& certificate = TestCertificate::shared();
    BackendServerThread server{store, certificate.serverCertificate(), certificate.serverKey()};
    HttpsClient client{server.baseUrl(), certificate.caCertificate()};
};

TEST_F(EndpointsTest, GetStatusServesPartnersInOrderAddedWithAllButStatusAsText) {
    store.addPartner({.status = true, .ip = "play.example.net", .port = "19132", .title = "Example",
                      .subtitle = "§l§fSurvival", .players = "12", .maxPlayers = "100"});
    store.addPartner({.status = false, .ip = "10.0.0.1", .port = "19133", .title = "Second",
                      .subtitle = "", .players = "-", .maxPlayers = "-"});

    const HttpsResponse response = client.get("/getStatus");

    ASSERT_THAT(response.transportError, IsEmpty());
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.header("content-type"), HasSubstr("application/json"));
    EXPECT_EQ(json::parse(response.body), json::parse(R"([
        {"status": true, "ip": "play.example.net", "port": "19132", "title": "Example",
         "subtitle": "§l§fSurvival", "players": "12", "maxPlayers": "100"},
        {"status": false, "ip": "10.0.0.1", "port": "19133", "title": "Second",
         "subtitle": "", "players": "-", "maxPlayers": "-"}
    ])"));
}

TEST_F(EndpointsTest, BlacklistServesOnlyTheIpOfEachHost) {
    store.addBlocked("blocked.example.net", 1);
    store.addBlocked("192.0.2.7", 2);

    const HttpsResponse response = client.get("/blacklist/all");

    ASSERT_THAT(response.transportError, IsEmpty());
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(json::parse(response.body), json::parse(R"([{"ip": "blocked.example.net"}, {"ip": "192.0.2.7"}])"));
}

TEST_F(EndpointsTest, MessagesAreThoseOfTheQueriedVersionNewestFirst) {
    const Message older = store.addMessage("1.19.50", "Maintenance on Sunday");
    store.addMessage("1.20.0", "Not for this version");
    const Message newer = store.addMessage("1.19.50", "Update the app!");

    const HttpsResponse response = client.get("/message/by-version?version=1.19.50");

    ASSERT_THAT(response.transportError, IsEmpty());
    EXPECT_EQ(response.status, 200);
    const json expected = {
        {{"id", newer.id}, {"version", "1.19.50"}, {"message", "Update the app!"}},
        {{"id", older.id}, {"version", "1.19.50"}, {"message", "Maintenance on Sunday"}},
    };
    EXPECT_EQ(json::parse(response.body), expected);
    EXPECT_TRUE(json::parse(response.body)[0]["id"].is_number_integer());
}

TEST_F(EndpointsTest, MessagesForAVersionWithoutAnyAreAnEmptyArray) {
    store.addMessage("1.19.50", "Hello");

    const HttpsResponse response = client.get("/message/by-version?version=1.21.0");

    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "[]");
}

TEST_F(EndpointsTest, MessagesWithoutAVersionQueryAreRefused) {
    expectJsonError(client.get("/message/by-version"), 400);
    expectStillServing();
}

TEST_F(EndpointsTest, EveryListOfAnEmptyStoreIsAnEmptyArray) {
    for (const char* target : {"/getStatus", "/blacklist/all", "/message/by-version?version=1.19.50"}) {
        const HttpsResponse response = client.get(target);
        ASSERT_THAT(response.transportError, IsEmpty()) << target;
        EXPECT_EQ(response.status, 200) << target;
        EXPECT_EQ(response.body, "[]") << target;
    }
}

TEST_F(EndpointsTest, HeadOnAListAnswersLikeGetWithoutABody) {
    const HttpsResponse response = client.send("HEAD", "/getStatus", std::nullopt, {});

    ASSERT_THAT(response.transportError, IsEmpty());
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.body, IsEmpty());
}

TEST_F(EndpointsTest, PostLogStoresTheBodyAsSentWithItsHeadersAndTime) {
    // Pretty-printed, as the app's JSON writer sends it.
    const std::string body = "{\n  \"serverIp\" : \"play.example.net\",\n  \"serverPort\" : \"\",\n"
                             "  \"clientIp\" : \"0F3C2A1B-4D5E-4F60-8A7B-9C0D1E2F3A4B\"\n}";
    const std::int64_t before = nowMs();

    const HttpsResponse response =
        client.send("POST", "/postLog", body,
                    {"Content-Type: application/json", "Accept: application/json", "User-Agent: Ferrylink/1"});

    const std::int64_t after = nowMs();
    ASSERT_THAT(response.transportError, IsEmpty());
    EXPECT_EQ(response.status, 201);
    // The app checks only that the answer is a JSON object.
    const json answer = json::parse(response.body);
    ASSERT_TRUE(answer.is_object());

    const auto entries = store.logEntries();
    ASSERT_EQ(entries.size(), 1u);
    const LogEntry& entry = entries[0];
    EXPECT_EQ(answer["id"], entry.id);
    EXPECT_EQ(entry.serverIp, "play.example.net");
    EXPECT_EQ(entry.serverPort, "");
    EXPECT_EQ(entry.clientIp, "0F3C2A1B-4D5E-4F60-8A7B-9C0D1E2F3A4B");
    EXPECT_EQ(entry.body, body);
    EXPECT_EQ(entry.contentType, "application/json");
    EXPECT_EQ(entry.accept, "application/json");
    EXPECT_EQ(entry.userAgent, "Ferrylink/1");
    EXPECT_EQ(entry.remoteAddress, "127.0.0.1");
    EXPECT_GE(entry.receivedAtMs, before);
    EXPECT_LE(entry.receivedAtMs, after);
}

TEST_F(EndpointsTest, PostLogKeepsEveryNoteOfConcurrentClients) {
    constexpr int kClients = 4;
    constexpr int kPostsEach = 10;
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([this, c] {
            for (int i = 0; i < kPostsEach; ++i) {
                const json note = {{"serverIp", "host" + std::to_string(c)},
                                   {"serverPort", std::to_string(i)},
                                   {"clientIp", "client"}};
                EXPECT_EQ(client.postJson("/postLog", note.dump()).status, 201);
            }
        });
    }
    for (auto& thread : clients) {
        thread.join();
    }

    EXPECT_EQ(store.logEntries().size(), static_cast<std::size_t>(kClients * kPostsEach));
}

struct RefusedPost {
    const char* name;
    const char* contentType;
    std::string body;
    int status;
    const char* errorMentions;
};

void PrintTo(const RefusedPost& post, std::ostream* out) {
    *out << post.name;
}

class PostLogRefusalTest : public EndpointsTest, public ::testing::WithParamInterface<RefusedPost> {};

TEST_P(PostLogRefusalTest, AnswersJsonErrorStoresNothingAndKeepsServing) {
    const RefusedPost& post = GetParam();

    const HttpsResponse response =
        client.send("POST", "/postLog", post.body, {std::string("Content-Type: ") + post.contentType});

    expectJsonError(response, post.status);
    EXPECT_THAT(json::parse(response.body)["error"].get<std::string>(), HasSubstr(post.errorMentions));
    EXPECT_THAT(store.logEntries(), IsEmpty());
    expectStillServing();
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, PostLogRefusalTest,
    ::testing::Values(
        RefusedPost{"MalformedJson", "application/json", R"({"serverIp": "a",)", 400, "not valid JSON"},
        RefusedPost{"EmptyBody", "application/json", "", 400, "empty"},
        RefusedPost{"ArrayRoot", "application/json", R"(["a", "b"])", 400, "JSON object"},
        RefusedPost{"MissingMember", "application/json", R"({"serverIp": "a", "serverPort": "1"})", 400,
                    "clientIp"},
        RefusedPost{"PortAsNumber", "application/json",
                    R"({"serverIp": "a", "serverPort": 19132, "clientIp": "c"})", 400, "serverPort"},
        RefusedPost{"NotJsonContentType", "text/plain", R"({"serverIp": "a", "serverPort": "", "clientIp": "c"})",
                    415, "application/json"},
        RefusedPost{"OverTheSizeLimit", "application/json", std::string(BackendServer::kMaxBodyBytes + 1, ' '),
                    413, "larger"}),
    [](const ::testing::TestParamInfo<RefusedPost>& info) { return std::string(info.param.name); });

struct WrongRoute {
    const char* method;
    const char* target;
    int status;
    const char* allow;
};

void PrintTo(const WrongRoute& route, std::ostream* out) {
    *out << route.method << ' ' << route.target;
}

class WrongRouteTest : public EndpointsTest, public ::testing::WithParamInterface<WrongRoute> {};

TEST_P(WrongRouteTest, AnswersJsonErrorAndKeepsServing) {
    const WrongRoute& route = GetParam();
    const bool withBody = std::string(route.method) == "POST" || std::string(route.method) == "PUT";

    const HttpsResponse response =
        client.send(route.method, route.target, withBody ? std::optional<std::string>("{}") : std::nullopt,
                    {"Content-Type: application/json"});

    expectJsonError(response, route.status);
    EXPECT_EQ(response.header("allow"), route.allow);
    expectStillServing();
}

INSTANTIATE_TEST_SUITE_P(
    Routes, WrongRouteTest,
    ::testing::Values(WrongRoute{"POST", "/getStatus", 405, "GET, HEAD"},
                      WrongRoute{"GET", "/postLog", 405, "POST"},
                      WrongRoute{"DELETE", "/blacklist/all", 405, "GET, HEAD"},
                      WrongRoute{"PUT", "/message/by-version", 405, "GET, HEAD"},
                      WrongRoute{"GET", "/nowhere", 404, ""},
                      WrongRoute{"POST", "/postlog", 404, ""},
                      WrongRoute{"GET", "/getStatus/", 404, ""}),
    [](const ::testing::TestParamInfo<WrongRoute>& info) {
        std::string name = info.param.method;
        for (const char* c = info.param.target; *c != '\0'; ++c) {
            name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
        }
        return name;
    });

// Sends bytes over TLS as they are and reads one answer: for requests that
// no well-behaved client library would send.
std::string exchangeRaw(int port, const std::filesystem::path& caCertificate, const std::string& bytes) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()),
                                                                   SSL_CTX_free);
    SSL_CTX_load_verify_locations(context.get(), caCertificate.c_str(), nullptr);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(context.get()),
                                                                   BIO_free_all);
    const std::string address = "127.0.0.1:" + std::to_string(port);
    BIO_set_conn_hostname(connection.get(), address.c_str());
    if (BIO_do_connect(connection.get()) <= 0 || BIO_do_handshake(connection.get()) <= 0) {
        return "<no connection>";
    }
    BIO_write(connection.get(), bytes.data(), static_cast<int>(bytes.size()));
    std::string answer;
    char buffer[4096];
    while (true) {
        const auto headerEnd = answer.find("\r\n\r\n");
        if (headerEnd != std::string::npos) {
            const auto lengthAt = answer.find("Content-Length: ");
            if (lengthAt != std::string::npos && lengthAt < headerEnd) {
                const std::size_t length = std::stoul(answer.substr(lengthAt + 16));
                if (answer.size() >= headerEnd + 4 + length) {
                    return answer;
                }
            }
        }
        const int read = BIO_read(connection.get(), buffer, sizeof buffer);
        if (read <= 0) {
            return answer;
        }
        answer.append(buffer, static_cast<std::size_t>(read));
    }
}

TEST_F(EndpointsTest, MalformedRequestLineGetsJson400AndServerKeepsServing) {
    const std::string answer =
        exchangeRaw(server.port(), certificate.caCertificate(), "THIS IS NOT HTTP\r\n\r\n");

    EXPECT_THAT(answer, ::testing::StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(answer, HasSubstr("Content-Type: application/json"));
    const std::string body = answer.substr(answer.find("\r\n\r\n") + 4);
    EXPECT_TRUE(json::parse(body).contains("error")) << body;
    expectStillServing();
}

TEST_F(EndpointsTest, ClientThatDoesNotTrustTheAuthorityIsRefused) {
    const TestCertificate stranger;
    const HttpsClient doubtingClient(server.baseUrl(), stranger.caCertificate());

    const HttpsResponse response = doubtingClient.get("/getStatus");

    EXPECT_THAT(response.transportError, ::testing::Not(IsEmpty()));
    expectStillServing();
}

TEST(BackendServerTest, DatabaseFailureIsA500ThatLeavesTheOtherListsServed) {
    std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-endpoints-XXXXXX").string();
    const std::filesystem::path directory = mkdtemp(pattern.data());
    const auto path = directory / "backend.db";
    Store store(path);
    store.addBlocked("still.served", 1);
    std::mutex logMutex;
    std::vector<std::string> log;
    const auto& certificate = TestCertificate::shared();
    BackendServerThread server(store, certificate.serverCertificate(), certificate.serverKey(), "127.0.0.1", 0,
                               [&](std::string_view line) {
                                   std::lock_guard lock(logMutex);
                                   log.emplace_back(line);
                               });
    const HttpsClient client(server.baseUrl(), certificate.caCertificate());
    // Another process spoils the file under the running server.
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "DROP TABLE partners", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);

    const HttpsResponse failed = client.get("/getStatus");
    const HttpsResponse served = client.get("/blacklist/all");

    EXPECT_EQ(failed.status, 500);
    EXPECT_EQ(json::parse(failed.body), json::parse(R"({"error": "internal server error"})"));
    EXPECT_EQ(served.status, 200);
    EXPECT_EQ(served.body, R"([{"ip":"still.served"}])");
    {
        std::lock_guard lock(logMutex);
        EXPECT_THAT(log, ::testing::Contains(::testing::AllOf(HasSubstr("error: GET /getStatus failed"),
                                                              HasSubstr("no such table: partners"))));
    }
    std::filesystem::remove_all(directory);
}

TEST(BackendServerTest, StopBeforeRunMakesRunReturnAtOnce) {
    Store store(":memory:");
    const auto& certificate = TestCertificate::shared();
    BackendServer server(store, certificate.serverCertificate(), certificate.serverKey());
    server.bind("127.0.0.1", 0);

    server.stop();
    server.run();
}

TEST(BackendServerTest, UnusableTlsFilesAreNamedAtConstruction) {
    Store store(":memory:");
    const auto& certificate = TestCertificate::shared();
    const TestCertificate stranger;
    struct Case {
        std::filesystem::path certificate;
        std::filesystem::path key;
        std::string mentions;
    };
    const Case cases[] = {
        {certificate.serverKey(), certificate.serverKey(), "certificate chain from " + certificate.serverKey().string()},
        {certificate.serverCertificate(), certificate.caCertificate(),
         "private key from " + certificate.caCertificate().string()},
        {certificate.serverCertificate(), stranger.serverKey(), "does not belong"},
    };

    for (const Case& files : cases) {
        try {
            BackendServer server(store, files.certificate, files.key);
            ADD_FAILURE() << "accepted " << files.certificate << " with " << files.key;
        } catch (const ServerError& error) {
            EXPECT_THAT(error.what(), HasSubstr(files.mentions));
        }
    }
}

TEST(BackendServerTest, PortInUseIsReportedByBind) {
    Store store(":memory:");
    const auto& certificate = TestCertificate::shared();
    BackendServerThread first(store, certificate.serverCertificate(), certificate.serverKey());
    BackendServer second(store, certificate.serverCertificate(), certificate.serverKey());

    try {
        second.bind("127.0.0.1", first.port());
        FAIL() << "bound a port that is in use";
    } catch (const ServerError& error) {
        EXPECT_THAT(error.what(), HasSubstr("127.0.0.1:" + std::to_string(first.port())));
    }
}

}  // namespace
}  // namespace ferrylink::backend
