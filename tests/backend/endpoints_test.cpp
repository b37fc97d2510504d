// The four endpoints over real HTTPS on loopback, as the app's backend
// client meets them: the JSON it decodes, the note it posts, and the refusals
// that must leave the server answering.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/ssl.h>
#include <arpa/inet.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>
#include <stdlib.h>

#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "backend/backend_server.h"
#include "backend/store.h"
#include "test_certificate.h"

namespace ferrylink::backend {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using testing::TestCertificate;

// A client that trusts the test authority and checks the server's name.
void trustTestAuthority(httplib::SSLClient& client) {
    client.set_ca_cert_path(TestCertificate::shared().caCertificate().c_str());
    client.enable_server_certificate_verification(true);
}

class EndpointsTest : public ::testing::Test {
protected:
    EndpointsTest() { trustTestAuthority(client); }

    json getJson(const std::string& target) {
        const auto response = client.Get(target.c_str());
        if (!response || response->status != 200) {
            ADD_FAILURE() << "GET " << target << " did not succeed";
            return nullptr;
        }
        EXPECT_THAT(response->get_header_value("Content-Type"), HasSubstr("application/json")) << target;
        return json::parse(response->body);
    }

    void expectStillServing() {
        const auto response = client.Get("/getStatus");
        ASSERT_TRUE(response) << httplib::to_string(response.error());
        EXPECT_EQ(response->status, 200);
    }

    Store store{":memory:"};
    const TestCertificate& certificate = TestCertificate::shared();
    BackendServerThread server{store, certificate.serverCertificate(), certificate.serverKey()};
    httplib::SSLClient client{"127.0.0.1", server.port()};
};

TEST_F(EndpointsTest, ListsAreJsonArraysOfTheStoreInItsOrder) {
    for (const char* target : {"/getStatus", "/blacklist/all", "/message/by-version?version=1.19.50"}) {
        EXPECT_EQ(getJson(target), json::array()) << target;
    }
    store.addPartner({.status = true, .ip = "play.example.net", .port = "19132", .title = "Example",
                      .subtitle = "§l§fSurvival", .players = "12", .maxPlayers = "100"});
    store.addPartner({.status = false, .ip = "10.0.0.1", .port = "19133", .title = "Second", .subtitle = "",
                      .players = "-", .maxPlayers = "-"});
    store.addBlocked("blocked.example.net", 1);
    store.addBlocked("192.0.2.7", 2);
    const Message older = store.addMessage("1.19.50", "Maintenance on Sunday");
    store.addMessage("1.20.0", "Not for this version");
    const Message newer = store.addMessage("1.19.50", "Update the app!");

    // Every field but status is text; the blacklist carries only the host.
    EXPECT_EQ(getJson("/getStatus"), json::parse(R"([
        {"status": true, "ip": "play.example.net", "port": "19132", "title": "Example",
         "subtitle": "§l§fSurvival", "players": "12", "maxPlayers": "100"},
        {"status": false, "ip": "10.0.0.1", "port": "19133", "title": "Second",
         "subtitle": "", "players": "-", "maxPlayers": "-"}])"));
    EXPECT_EQ(getJson("/blacklist/all"), json::parse(R"([{"ip": "blocked.example.net"}, {"ip": "192.0.2.7"}])"));
    const json messages = getJson("/message/by-version?version=1.19.50");
    EXPECT_EQ(messages, (json{{{"id", newer.id}, {"version", "1.19.50"}, {"message", "Update the app!"}},
                              {{"id", older.id}, {"version", "1.19.50"}, {"message", "Maintenance on Sunday"}}}));
    EXPECT_TRUE(messages[0]["id"].is_number_integer());
    EXPECT_EQ(getJson("/message/by-version?version=1.21.0"), json::array());

    const auto head = client.Head("/getStatus");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->status, 200);
    EXPECT_EQ(head->body, "");
}

TEST_F(EndpointsTest, PostLogKeepsEveryNoteOfConcurrentClients) {
    std::vector<std::thread> clients;
    for (int c = 0; c < 4; ++c) {
        clients.emplace_back([this, c] {
            httplib::SSLClient own("127.0.0.1", server.port());
            trustTestAuthority(own);
            for (int i = 0; i < 5; ++i) {
                const json note = {{"serverIp", "host" + std::to_string(c)}, {"serverPort", ""}, {"clientIp", "c"}};
                const auto response = own.Post("/postLog", note.dump(), "application/json");
                EXPECT_TRUE(response && response->status == 201);
            }
        });
    }
    for (auto& thread : clients) {
        thread.join();
    }
    EXPECT_EQ(store.logEntries().size(), 20u);
}

TEST(BackendServerTest, PostLogTakesSoManyNotesFromOneClientAMinute) {
    Store store(":memory:");
    const auto& certificate = TestCertificate::shared();
    BackendServerThread server(store, certificate.serverCertificate(), certificate.serverKey(), "127.0.0.1", 0, nullptr,
                               {.perAddressPerMinute = 2});
    httplib::SSLClient client("127.0.0.1", server.port());
    trustTestAuthority(client);
    const std::string note = R"({"serverIp": "a", "serverPort": "1", "clientIp": "c"})";
    std::vector<int> statuses;
    for (int i = 0; i < 3; ++i) {
        statuses.push_back(client.Post("/postLog", note, "application/json")->status);
    }
    EXPECT_THAT(statuses, ::testing::ElementsAre(201, 201, 429));
    EXPECT_EQ(store.logEntries().size(), 2u);
}

struct Refusal {
    const char* name;
    const char* method;
    const char* target;
    const char* contentType;
    std::string body;
    int status;
    const char* errorMentions = "";
    const char* allow = "";
};

class RefusalTest : public EndpointsTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusalTest, AnswersJsonErrorStoresNothingAndKeepsServing) {
    const Refusal& refusal = GetParam();
    const std::string method = refusal.method;
    const auto response = method == "GET" ? client.Get(refusal.target)
                                          : client.Post(refusal.target, refusal.body, refusal.contentType);

    ASSERT_TRUE(response) << httplib::to_string(response.error());
    EXPECT_EQ(response->status, refusal.status);
    EXPECT_THAT(response->get_header_value("Content-Type"), HasSubstr("application/json"));
    EXPECT_EQ(response->get_header_value("Allow"), refusal.allow);
    // {"error": "<text>"} and nothing else.
    const json body = json::parse(response->body);
    ASSERT_TRUE(body.is_object() && body.size() == 1 && body.contains("error")) << response->body;
    EXPECT_THAT(body["error"].get<std::string>(), HasSubstr(refusal.errorMentions));
    EXPECT_FALSE(body["error"].get<std::string>().empty());
    EXPECT_TRUE(store.logEntries().empty());
    expectStillServing();
}

INSTANTIATE_TEST_SUITE_P(
    Requests, RefusalTest,
    ::testing::Values(
        Refusal{"MalformedJson", "POST", "/postLog", "application/json", R"({"serverIp": "a",)", 400, "not valid JSON"},
        Refusal{"ArrayRoot", "POST", "/postLog", "application/json", R"(["a", "b"])", 400, "JSON object"},
        Refusal{"MissingMember", "POST", "/postLog", "application/json", R"({"serverIp": "a", "serverPort": "1"})",
                400, "clientIp"},
        Refusal{"OverlongHost", "POST", "/postLog", "application/json",
                R"({"serverIp": ")" + std::string(300, 'a') + R"(", "serverPort": "1", "clientIp": "c"})", 400, "serverIp"},
        Refusal{"PortAsNumber", "POST", "/postLog", "application/json",
                R"({"serverIp": "a", "serverPort": 19132, "clientIp": "c"})", 400, "serverPort"},
        Refusal{"NotJsonContentType", "POST", "/postLog", "text/plain",
                R"({"serverIp": "a", "serverPort": "", "clientIp": "c"})", 415, "application/json"},
        Refusal{"OverTheSizeLimit", "POST", "/postLog", "application/json",
                std::string(BackendServer::kMaxBodyBytes + 1, ' '), 413, "64 KiB"},
        Refusal{"MessagesWithoutVersion", "GET", "/message/by-version", "", "", 400, "version"},
        Refusal{"PostOnAList", "POST", "/getStatus", "application/json", "{}", 405, "", "GET, HEAD"},
        Refusal{"GetOnPostLog", "GET", "/postLog", "", "", 405, "", "POST"},
        Refusal{"UnknownPath", "GET", "/nowhere", "", "", 404},
        Refusal{"PathWithTrailingSlash", "GET", "/getStatus/", "", "", 404}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

// Sends bytes over TLS as they are and reads one answer: for requests that
// no well-behaved client library would send.
std::string exchangeRaw(int port, const std::string& bytes) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_load_verify_locations(context.get(), TestCertificate::shared().caCertificate().c_str(), nullptr);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(context.get()), BIO_free_all);
    BIO_set_conn_hostname(connection.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
    if (BIO_do_connect(connection.get()) <= 0 || BIO_do_handshake(connection.get()) <= 0) {
        return "<no connection>";
    }
    BIO_write(connection.get(), bytes.data(), static_cast<int>(bytes.size()));
    // The connection stays open after the answer: read as far as its length.
    std::string answer;
    char buffer[4096];
    for (int read = 0; (read = BIO_read(connection.get(), buffer, sizeof buffer)) > 0;) {
        answer.append(buffer, static_cast<std::size_t>(read));
        const auto headerEnd = answer.find("\r\n\r\n");
        const auto lengthAt = answer.find("Content-Length: ");
        if (headerEnd != std::string::npos && lengthAt < headerEnd &&
            answer.size() >= headerEnd + 4 + std::stoul(answer.substr(lengthAt + 16))) {
            break;
        }
    }
    return answer;
}

// Connections from one host that never send a byte: those over its share
// are closed at once, the rest hold no thread, and another host is served.
TEST_F(EndpointsTest, IdleConnectionsOfOneHostLeaveOthersServed) {
    std::vector<int> idle;
    for (int i = 0; i < 64; ++i) {
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        ::inet_pton(AF_INET, "127.0.0.2", &address.sin_addr);
        ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        ::inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
        address.sin_port = htons(static_cast<uint16_t>(server.port()));
        ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        idle.push_back(fd);
    }
    for (int i = 0; i < 3; ++i) {
        expectStillServing();
    }
    for (int fd : idle) {
        ::close(fd);
    }
}

// A huge Content-Length is refused before any of the body comes.
TEST_F(EndpointsTest, GarbledRequestsAndADistrustfulClientLeaveTheServerServing) {
    for (const auto& [request, status] : {std::pair{"THIS IS NOT HTTP\r\n\r\n", "400"},
                                          {"POST /postLog HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
                                           "Content-Length: 1000000000000\r\n\r\n", "413"}}) {
        const std::string answer = exchangeRaw(server.port(), request);
        EXPECT_THAT(answer, ::testing::StartsWith(std::string("HTTP/1.1 ") + status));
        EXPECT_THAT(answer, HasSubstr("Content-Type: application/json"));
        EXPECT_TRUE(json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).contains("error")) << answer;
    }

    const TestCertificate stranger;
    httplib::SSLClient doubting("127.0.0.1", server.port());
    doubting.set_ca_cert_path(stranger.caCertificate().c_str());
    doubting.enable_server_certificate_verification(true);
    EXPECT_FALSE(doubting.Get("/getStatus"));
    expectStillServing();
}

TEST(BackendServerTest, DatabaseFailureIsA500ThatLeavesTheOtherListsServed) {
    std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-endpoints-XXXXXX").string();
    const std::filesystem::path directory = mkdtemp(pattern.data());
    Store store(directory / "backend.db");
    store.addBlocked("still.served", 1);
    const auto& certificate = TestCertificate::shared();
    BackendServerThread server(store, certificate.serverCertificate(), certificate.serverKey());
    httplib::SSLClient client("127.0.0.1", server.port());
    trustTestAuthority(client);
    // Another process spoils the file under the running server.
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((directory / "backend.db").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "DROP TABLE partners", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);

    const auto failed = client.Get("/getStatus");
    const auto served = client.Get("/blacklist/all");
    ASSERT_TRUE(failed && served);
    EXPECT_EQ(failed->status, 500);
    EXPECT_EQ(json::parse(failed->body), json::parse(R"({"error": "the server failed to answer"})"));
    EXPECT_EQ(served->status, 200);
    EXPECT_EQ(served->body, R"([{"ip":"still.served"}])");
    std::filesystem::remove_all(directory);
}

TEST(BackendServerTest, StopBeforeRunMakesRunReturnAtOnce) {
    Store store(":memory:");
    BackendServer server(store, TestCertificate::shared().serverCertificate(), TestCertificate::shared().serverKey());
    server.bind("127.0.0.1", 0);
    server.stop();
    server.run();
}

TEST(BackendServerTest, UnusableTlsFilesAreNamedAtConstruction) {
    Store store(":memory:");
    const auto& ours = TestCertificate::shared();
    const TestCertificate stranger;
    const struct {
        std::filesystem::path certificate;
        std::filesystem::path key;
        std::string mentions;
    } cases[] = {
        {ours.serverKey(), ours.serverKey(), "certificate chain from " + ours.serverKey().string()},
        {ours.serverCertificate(), ours.caCertificate(), "private key from " + ours.caCertificate().string()},
        {ours.serverCertificate(), stranger.serverKey(), "does not belong"},
    };
    for (const auto& files : cases) {
        EXPECT_THAT([&] { BackendServer(store, files.certificate, files.key); },
                    ::testing::ThrowsMessage<ServerError>(HasSubstr(files.mentions)));
    }
}

}  // namespace
}  // namespace ferrylink::backend
