// The operator's command: editing the data and the exit statuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "backend/backend_server.h"
#include "backend/command_line.h"
#include "backend/store.h"
#include "test_certificate.h"

namespace ferrylink::backend {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using testing::TestCertificate;

struct CommandResult {
    int status = -1;
    std::string out;
    std::string err;
};

class CommandLineTest : public ::testing::Test {
protected:
    CommandLineTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-cli-XXXXXX").string();
        directory_ = mkdtemp(pattern.data());
        database_ = directory_ / "backend.db";
    }
    ~CommandLineTest() override { std::filesystem::remove_all(directory_); }

    // The command, in process, on this test's database.
    CommandResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "ferrylink-backend");
        arguments.insert(arguments.end(), {"--db", database_.string()});
        std::vector<const char*> argv;
        for (const auto& argument : arguments) {
            argv.push_back(argument.c_str());
        }
        std::ostringstream out;
        std::ostringstream err;
        const int status = runCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
        return {status, out.str(), err.str()};
    }

    json listJson(const std::string& what) const {
        const CommandResult result = run({what, "list", "--json"});
        EXPECT_EQ(result.status, kExitSuccess) << result.err;
        return json::parse(result.out);
    }

    std::filesystem::path directory_;
    std::filesystem::path database_;
};

TEST_F(CommandLineTest, PartnerAddListUpdateRemove) {
    const CommandResult added = run({"partner", "add", "--ip", "play.example.net", "--title", "Example", "--subtitle",
                                     "§aSurvival", "--players", "3", "--max-players", "50", "--status", "off"});
    ASSERT_EQ(added.status, kExitSuccess) << added.err;
    EXPECT_EQ(added.out, "added partnered server 1\n");
    EXPECT_EQ(listJson("partner"), json::parse(R"([{"status": false, "ip": "play.example.net", "port": "19132",
        "title": "Example", "subtitle": "§aSurvival", "players": "3", "maxPlayers": "50", "id": 1}])"));

    // An update changes only the fields it names.
    ASSERT_EQ(run({"partner", "update", "1", "--players", "4", "--status", "on"}).status, kExitSuccess);
    EXPECT_EQ(run({"partner", "list"}).out, "1\ton\tplay.example.net:19132\t4/50\tExample\t§aSurvival\n");
    ASSERT_EQ(run({"partner", "remove", "1"}).status, kExitSuccess);
    EXPECT_EQ(listJson("partner"), json::array());
}

TEST_F(CommandLineTest, BlockAddIsIdempotentAndWarnsAboutCapitals) {
    const CommandResult added = run({"block", "add", "blocked.example", "Caps.example"});
    ASSERT_EQ(added.status, kExitSuccess) << added.err;
    EXPECT_EQ(added.out, "blocked blocked.example\nblocked Caps.example\n");
    EXPECT_THAT(added.err, HasSubstr("'Caps.example' never matches"));
    const CommandResult again = run({"block", "add", "blocked.example"});
    EXPECT_EQ(again.status, kExitSuccess);
    EXPECT_EQ(again.out, "already blocked blocked.example\n");

    // Removal matches the host exactly, capitals included.
    EXPECT_EQ(run({"block", "remove", "caps.example"}).status, kExitFailure);
    EXPECT_EQ(run({"block", "remove", "Caps.example"}).status, kExitSuccess);
    const json listed = listJson("block");
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0]["ip"], "blocked.example");
}

TEST_F(CommandLineTest, MessageAddListByVersionRemove) {
    ASSERT_EQ(run({"message", "add", "--version", "1.19.50", "First"}).status, kExitSuccess);
    ASSERT_EQ(run({"message", "add", "--version", "1.20.0", "Other"}).status, kExitSuccess);
    const CommandResult third = run({"message", "add", "--version", "1.19.50", "Two\nlines"});
    ASSERT_EQ(third.status, kExitSuccess) << third.err;
    EXPECT_EQ(third.out, "added message 3 for version 1.19.50\n");
    EXPECT_EQ(run({"message", "list", "--version", "1.19.50"}).out, "3\t1.19.50\tTwo\\nlines\n1\t1.19.50\tFirst\n");

    EXPECT_EQ(run({"message", "remove", "3"}).status, kExitSuccess);
    EXPECT_EQ(listJson("message"), json::parse(R"([{"id": 2, "version": "1.20.0", "message": "Other"},
                                                   {"id": 1, "version": "1.19.50", "message": "First"}])"));
}

TEST_F(CommandLineTest, LogListShowsReportedRunsNewestLast) {
    {
        Store store(database_);
        store.addLogEntry({.receivedAtMs = 1000, .remoteAddress = "127.0.0.1", .serverIp = "first.example",
                           .serverPort = "19132", .clientIp = "UUID-1", .body = "{}"});
        store.addLogEntry({.receivedAtMs = 2000, .remoteAddress = "127.0.0.1", .serverIp = "second.example",
                           .serverPort = "", .clientIp = "UUID-2", .body = "{}"});
    }
    EXPECT_EQ(run({"log", "list"}).out,
              "1970-01-01T00:00:01.000Z\t127.0.0.1\tfirst.example:19132\tUUID-1\n"
              "1970-01-01T00:00:02.000Z\t127.0.0.1\tsecond.example:\tUUID-2\n");
    const json newest = json::parse(run({"log", "list", "--limit", "1", "--json"}).out);
    ASSERT_EQ(newest.size(), 1u);
    EXPECT_EQ(newest[0]["serverIp"], "second.example");
    EXPECT_EQ(newest[0]["receivedAt"], "1970-01-01T00:00:02.000Z");
}

TEST_F(CommandLineTest, RecordThatIsNotThereExitsOneWithOneLineNamingIt) {
    for (const auto& [arguments, named] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"partner", "update", "7", "--players", "1"}, "7"},
             {{"message", "remove", "7"}, "7"},
             {{"block", "remove", "nothing.example"}, "nothing.example"}}) {
        const CommandResult result = run(arguments);
        EXPECT_EQ(result.status, kExitFailure) << named;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(result.err, HasSubstr(named));
    }
}

TEST_F(CommandLineTest, PortInUseExitsOneNamingTheAddress) {
    Store store(":memory:");
    const auto& certificate = TestCertificate::shared();
    BackendServerThread first(store, certificate.serverCertificate(), certificate.serverKey());
    const CommandResult result =
        run({"serve", "--cert", certificate.serverCertificate().string(), "--key", certificate.serverKey().string(),
             "--listen", "127.0.0.1", "--port", std::to_string(first.port())});
    EXPECT_EQ(result.status, kExitFailure);
    EXPECT_THAT(result.err, HasSubstr("127.0.0.1:" + std::to_string(first.port())));
}

// Our own checks of the arguments, made before a database is created.
class BadArgumentsTest : public CommandLineTest, public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(BadArgumentsTest, ExitTwoWithOneLineAndLeaveNoDatabase) {
    const CommandResult result = run(GetParam());
    EXPECT_EQ(result.status, kExitBadArguments);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_THAT(result.err, ::testing::StartsWith("ferrylink-backend")) << result.err;
    EXPECT_FALSE(std::filesystem::exists(database_));
}

using Arguments = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(Commands, BadArgumentsTest,
                         ::testing::Values(Arguments{"frobnicate"}, Arguments{"partner", "add", "--title", "no host"},
                                           Arguments{"partner", "add", "--ip", "a b", "--title", "t"},
                                           Arguments{"partner", "add", "--ip", "a", "--title", "t", "--port", "19132x"},
                                           Arguments{"partner", "update", "1"}, Arguments{"block", "add", ""},
                                           Arguments{"message", "add", "--version", "", "text"}));

// The binary serving, edited meanwhile and stopped by SIGINT or SIGTERM, is
// the browser tests' backend: their fixture fills it while it serves and
// fails unless it stops cleanly.

}  // namespace
}  // namespace ferrylink::backend
