#include "app/backend_client.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <map>
#include <regex>
#include <thread>

#include "app/user_defaults.h"
#include "app_test_support.h"
#include "backend/backend_server.h"
#include "backend/store.h"
#include "backend/test_certificate.h"
#include "foundation/clock.h"

namespace ferrylink::app {
namespace {

using ferrylink::testing::TestCertificate;
using testing::LogCollector;
using testing::onMain;
using testing::runMainUntil;
using testing::ScratchDirectory;

std::shared_ptr<BackendSession> sessionFor(int port) {
    return std::make_shared<BackendSession>(BackendEndpoint{"127.0.0.1", port, TestCertificate::shared().caCertificate()});
}

// The real backend, in process, on 127.0.0.1 with a test certificate.
class RealBackend : public ::testing::Test {
protected:
    RealBackend()
        : store_(":memory:"),
          server_(store_, TestCertificate::shared().serverCertificate(), TestCertificate::shared().serverKey()),
          session_(sessionFor(server_.port())) {}

    backend::Store store_;
    backend::BackendServerThread server_;
    std::shared_ptr<BackendSession> session_;
};

TEST_F(RealBackend, BlacklistIsFetchedOnceAndMatchedExactly) {
    store_.addBlocked("blocked.example", 0);
    store_.addBlocked("Caps.Example", 0);
    auto blacklist = BlacklistServers::make(session_);
    onMain([&] { blacklist->fetchBlacklist(); });
    ASSERT_TRUE(runMainUntil([&] { return blacklist->fetched(); }));
    onMain([&] {
        EXPECT_EQ(blacklist->servers.get().size(), 2u);
        EXPECT_TRUE(blacklist->isBlacklisted("blocked.example"));
        EXPECT_FALSE(blacklist->isBlacklisted("caps.example"));
        EXPECT_FALSE(blacklist->isBlacklisted("sub.blocked.example"));
        auto before = session_->requestsStarted();
        blacklist->fetchBlacklist();
        EXPECT_EQ(session_->requestsStarted(), before);
    });
}

TEST_F(RealBackend, StatusRefreshesAtMostEveryFiveSecondsFromTheLastSuccess) {
    store_.addPartner({.status = true, .ip = "play.example.net", .port = "19132", .title = "Example",
                       .subtitle = "\u00A7aOnline", .players = "5", .maxPlayers = "100"});

    auto partnered = PartneredServers::make(session_);
    int64_t before = foundation::Clock::currentTimeMillis();
    onMain([&] { partnered->fetchStatus(); });
    ASSERT_TRUE(runMainUntil([&] { return partnered->lastFetch() != -1; }));
    onMain([&] {
        ASSERT_EQ(partnered->servers.get().size(), 1u);
        EXPECT_EQ(partnered->servers.get()[0],
                  (PartneredServer{true, "play.example.net", "19132", "Example", "\u00A7aOnline", "5", "100"}));
        EXPECT_GE(partnered->lastFetch(), before);

        auto sent = session_->requestsStarted();
        partnered->fetchStatus();
        EXPECT_EQ(session_->requestsStarted(), sent);
        foundation::Clock::advance(partnered->lastFetch() + PartneredServers::refreshIntervalMillis -
                                   foundation::Clock::currentTimeMillis());
        // lastFetch + 5000 equal to now still holds the request back.
        partnered->fetchStatus();
        EXPECT_EQ(session_->requestsStarted(), sent);
        foundation::Clock::advance(1);
        partnered->fetchStatus();
        EXPECT_EQ(session_->requestsStarted(), sent + 1);
    });
}

TEST_F(RealBackend, RunReportCarriesTheInstallIdentityAsPrettyJson) {
    ScratchDirectory scratch;
    UserDefaults defaults(scratch.path() / "Ferrylink.sqlite");
    onMain([&] { postLog(*session_, defaults, "play.example.net", ""); });
    ASSERT_TRUE(runMainUntil([&] { return !store_.logEntries().empty(); }));
    auto entry = store_.logEntries().at(0);
    EXPECT_EQ(entry.contentType, "application/json");
    EXPECT_EQ(entry.accept, "application/json");
    EXPECT_EQ(entry.serverIp, "play.example.net");
    EXPECT_EQ(entry.serverPort, "");
    EXPECT_EQ(entry.clientIp, defaults.string("clientUUID"));
    EXPECT_TRUE(std::regex_match(entry.clientIp, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << entry.clientIp;
    EXPECT_NE(entry.body.find("\n  \""), std::string::npos) << entry.body;
    // The identity is made once.
    EXPECT_EQ(clientIdentifier(defaults), entry.clientIp);
}

TEST_F(RealBackend, UntrustedCertificateIsATransportError) {
    LogCollector log;
    auto blacklist = BlacklistServers::make(
        std::make_shared<BackendSession>(BackendEndpoint{"127.0.0.1", server_.port(), std::nullopt}));
    onMain([&] { blacklist->fetchBlacklist(); });
    ASSERT_TRUE(runMainUntil([&] { return !log.lines().empty(); }));
    EXPECT_TRUE(log.lines()[0].starts_with("Fetch failed: SSL")) << log.lines()[0];
    onMain([&] { EXPECT_FALSE(blacklist->fetched()); });
}

TEST(BackendFailures, AddressesThatDoNotParseSendNothing) {
    LogCollector log;
    auto session = std::make_shared<BackendSession>(BackendEndpoint{"bad host", 8443, std::nullopt});
    auto messages = Messages::make(session);
    auto blacklist = BlacklistServers::make(session);
    auto partnered = PartneredServers::make(session);
    onMain([&] {
        messages->fetchMessages([] { ADD_FAILURE() << "no completion without an answer"; });
        blacklist->fetchBlacklist();
        partnered->fetchStatus();
    });
    testing::drainMain();
    onMain([&] { EXPECT_EQ(partnered->servers.get(), std::vector<PartneredServer>{partneredPlaceholder()}); });
    EXPECT_EQ(session->requestsStarted(), 0u);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Invalid saveBookRating URL"});
}

TEST(BackendFailuresDeathTest, RunReportToAnAddressThatDoesNotParseIsFatal) {
    ScratchDirectory scratch;
    EXPECT_DEATH(
        {
            UserDefaults defaults(scratch.path() / "Ferrylink.sqlite");
            postLog(BackendSession(BackendEndpoint{"bad host", 8443, std::nullopt}), defaults, "x", "1");
        },
        "Invalid postLog URL");
}

// A backend that answers whatever body a test gives it, to try the decoder
// on answers the real one never gives.
class Decoding : public ::testing::Test {
protected:
    Decoding()
        : server_(TestCertificate::shared().serverCertificate().c_str(), TestCertificate::shared().serverKey().c_str()) {
        for (const char* path : {"/blacklist/all", "/getStatus", "/message/by-version"}) {
            server_.Get(path, [this, path = std::string(path)](const httplib::Request&, httplib::Response& response) {
                std::lock_guard lock(mutex_);
                response.set_content(bodies_[path], "application/json");
            });
        }
        session_ = sessionFor(server_.bind_to_any_port("127.0.0.1"));
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~Decoding() override {
        server_.stop();
        thread_.join();
    }

    void answer(const std::string& path, std::string body) {
        std::lock_guard lock(mutex_);
        bodies_[path] = std::move(body);
    }

    std::vector<PartneredServer> statusFrom(const std::string& body) {
        answer("/getStatus", body);
        auto partnered = PartneredServers::make(session_);
        onMain([&] { partnered->fetchStatus(); });
        EXPECT_TRUE(runMainUntil([&] { return partnered->lastFetch() != -1; }));
        return partnered->servers.getUnchecked();
    }

    httplib::SSLServer server_;
    std::mutex mutex_;
    std::map<std::string, std::string> bodies_;
    std::thread thread_;
    std::shared_ptr<BackendSession> session_;
};

// A bad object costs only itself; a bad value of another kind, or a root
// that is no array of JSON, costs the whole answer.
TEST_F(Decoding, BlacklistAnswers) {
    using Servers = std::optional<std::vector<BlacklistServer>>;
    const std::pair<const char*, Servers> answers[] = {
        {R"([{"ip":"a"}, {"x":1}, {"ip":"b"}])", std::vector<BlacklistServer>{{"a"}, {"b"}}},
        {"[]", std::vector<BlacklistServer>{}},
        {R"([{"ip":"a"}, 5])", std::nullopt},
        {R"([{"ip":"a"}, "b"])", std::nullopt},
        {R"({"servers":[{"ip":"a"}]})", std::nullopt},
        {"<html>busy</html>", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [body, expected] : answers) {
        answer("/blacklist/all", body);
        LogCollector log;
        auto blacklist = BlacklistServers::make(session_);
        onMain([&] { blacklist->fetchBlacklist(); });
        ASSERT_TRUE(runMainUntil([&] { return !log.lines().empty() || blacklist->fetched(); })) << body;
        if (expected) {
            EXPECT_EQ(blacklist->servers.getUnchecked(), *expected) << body;
        } else {
            EXPECT_EQ(log.lines(), std::vector<std::string>{"Fetch failed: Unknown error"}) << body;
        }
    }
    EXPECT_TRUE(statusFrom("[]").empty());
}

TEST_F(Decoding, PartneredFieldsButStatusMustBeText) {
    auto rows = statusFrom(R"([
        {"status":false,"ip":"a","port":19132,"title":"t","subtitle":"s","players":"1","maxPlayers":"2"},
        {"status":false,"ip":"b","port":"19132","title":"t","subtitle":"s","players":"1","maxPlayers":"2","extra":1},
        {"status":"true","ip":"c","port":"19132","title":"t","subtitle":"s","players":"1","maxPlayers":"2"}
    ])");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0], (PartneredServer{false, "b", "19132", "t", "s", "1", "2"}));
}

TEST_F(Decoding, FailureAfterSuccessReplacesTheRowsWithThePlaceholder) {
    answer("/getStatus",
           R"([{"status":true,"ip":"a","port":"1","title":"t","subtitle":"s","players":"-","maxPlayers":"-"}])");
    auto partnered = PartneredServers::make(session_);
    onMain([&] { partnered->fetchStatus(); });
    ASSERT_TRUE(runMainUntil([&] { return partnered->lastFetch() != -1; }));
    int64_t firstSuccess = partnered->lastFetch();
    answer("/getStatus", "[1]");
    LogCollector log;
    onMain([&] {
        foundation::Clock::advance(PartneredServers::refreshIntervalMillis + 1);
        partnered->fetchStatus();
    });
    ASSERT_TRUE(runMainUntil([&] { return partnered->servers.getUnchecked().at(0).ip == "0.0.0.0"; }));
    EXPECT_EQ(partnered->lastFetch(), firstSuccess);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Fetch failed: Unknown error"});
}

TEST_F(Decoding, MessageIdIsAWholeNumber) {
    answer("/message/by-version", R"([
        {"id":7.0,"version":"1.19.50","message":"whole"},
        {"id":7.5,"version":"1.19.50","message":"fraction"},
        {"id":"7","version":"1.19.50","message":"text"},
        {"id":-3,"version":"1.19.50","message":"negative"}
    ])");
    auto messages = Messages::make(session_);
    bool done = false;
    onMain([&] { messages->fetchMessages([&] { done = true; }); });
    ASSERT_TRUE(runMainUntil([&] { return done; }));
    onMain([&] {
        EXPECT_EQ(messages->messages.get(),
                  (std::vector<Message>{{7, "1.19.50", "whole"}, {-3, "1.19.50", "negative"}}));
    });
}

}  // namespace
}  // namespace ferrylink::app
