// The operator's command: editing the data, the exit statuses, and the real
// binary serving over HTTPS until it is told to stop by a signal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "backend/command_line.h"
#include "backend/store.h"
#include "https_client.h"
#include "test_certificate.h"

extern char** environ;

namespace ferrylink::backend {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::HttpsClient;
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
    ~CommandLineTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    static CommandResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "ferrylink-backend");
        std::vector<const char*> argv;
        for (const auto& argument : arguments) {
            argv.push_back(argument.c_str());
        }
        argv.push_back(nullptr);
        std::ostringstream out;
        std::ostringstream err;
        CommandResult result;
        result.status = runCommandLine(static_cast<int>(arguments.size()), argv.data(), out, err);
        result.out = out.str();
        result.err = err.str();
        return result;
    }

    // The command with this test's database.
    CommandResult runOnDatabase(std::vector<std::string> arguments) const {
        arguments.push_back("--db");
        arguments.push_back(database_.string());
        return run(std::move(arguments));
    }

    json listJson(const std::string& what) const {
        const CommandResult result = runOnDatabase({what, "list", "--json"});
        EXPECT_EQ(result.status, kExitSuccess) << result.err;
        return json::parse(result.out);
    }

    std::filesystem::path directory_;
    std::filesystem::path database_;
};

TEST_F(CommandLineTest, PartnerAddListUpdateRemove) {
    const CommandResult added =
        runOnDatabase({"partner", "add", "--ip", "play.example.net", "--title", "Example", "--subtitle",
                       "§aSurvival", "--players", "3", "--max-players", "50", "--status", "off"});
    ASSERT_EQ(added.status, kExitSuccess) << added.err;
    EXPECT_EQ(added.out, "added partnered server 1\n");

    EXPECT_EQ(listJson("partner"), json::parse(R"([{"status": false, "ip": "play.example.net", "port": "19132",
        "title": "Example", "subtitle": "§aSurvival", "players": "3", "maxPlayers": "50", "id": 1}])"));

    const CommandResult updated = runOnDatabase({"partner", "update", "1", "--players", "4", "--status", "on"});
    ASSERT_EQ(updated.status, kExitSuccess) << updated.err;
    EXPECT_EQ(runOnDatabase({"partner", "list"}).out,
              "1\ton\tplay.example.net:19132\t4/50\tExample\t§aSurvival\n");

    const CommandResult removed = runOnDatabase({"partner", "remove", "1"});
    ASSERT_EQ(removed.status, kExitSuccess) << removed.err;
    EXPECT_EQ(listJson("partner"), json::array());
}

TEST_F(CommandLineTest, BlockAddIsIdempotentAndWarnsAboutCapitals) {
    const CommandResult added = runOnDatabase({"block", "add", "blocked.example", "Caps.example"});
    ASSERT_EQ(added.status, kExitSuccess) << added.err;
    EXPECT_EQ(added.out, "blocked blocked.example\nblocked Caps.example\n");
    EXPECT_THAT(added.err, HasSubstr("'Caps.example' never matches"));

    const CommandResult again = runOnDatabase({"block", "add", "blocked.example"});
    EXPECT_EQ(again.status, kExitSuccess);
    EXPECT_EQ(again.out, "already blocked blocked.example\n");

    const json listed = listJson("block");
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0]["ip"], "blocked.example");
    EXPECT_EQ(listed[1]["ip"], "Caps.example");

    EXPECT_EQ(runOnDatabase({"block", "remove", "Caps.example"}).status, kExitSuccess);
    EXPECT_EQ(listJson("block").size(), 1u);
}

TEST_F(CommandLineTest, MessageAddListByVersionRemove) {
    ASSERT_EQ(runOnDatabase({"message", "add", "--version", "1.19.50", "First"}).status, kExitSuccess);
    ASSERT_EQ(runOnDatabase({"message", "add", "--version", "1.20.0", "Other"}).status, kExitSuccess);
    const CommandResult second = runOnDatabase({"message", "add", "--version", "1.19.50", "Two\nlines"});
    ASSERT_EQ(second.status, kExitSuccess) << second.err;
    EXPECT_EQ(second.out, "added message 3 for version 1.19.50\n");

    EXPECT_EQ(runOnDatabase({"message", "list", "--version", "1.19.50"}).out,
              "3\t1.19.50\tTwo\\nlines\n1\t1.19.50\tFirst\n");

    EXPECT_EQ(runOnDatabase({"message", "remove", "3"}).status, kExitSuccess);
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

    EXPECT_EQ(runOnDatabase({"log", "list"}).out,
              "1970-01-01T00:00:01.000Z\t127.0.0.1\tfirst.example:19132\tUUID-1\n"
              "1970-01-01T00:00:02.000Z\t127.0.0.1\tsecond.example:\tUUID-2\n");
    const CommandResult newest = runOnDatabase({"log", "list", "--limit", "1", "--json"});
    ASSERT_EQ(newest.status, kExitSuccess) << newest.err;
    const json entries = json::parse(newest.out);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0]["serverIp"], "second.example");
    EXPECT_EQ(entries[0]["receivedAt"], "1970-01-01T00:00:02.000Z");
}

TEST_F(CommandLineTest, RecordThatIsNotThereExitsOneWithOneLineNamingIt) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"partner", "remove", "7"}, "7"},
        {{"partner", "update", "7", "--players", "1"}, "7"},
        {{"message", "remove", "7"}, "7"},
        {{"block", "remove", "nothing.example"}, "nothing.example"},
    };
    for (const auto& [arguments, named] : cases) {
        const CommandResult result = runOnDatabase(arguments);
        EXPECT_EQ(result.status, kExitFailure) << named;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(result.err, HasSubstr(named));
    }
}

TEST_F(CommandLineTest, HelpExitsZero) {
    const CommandResult result = run({"partner", "add", "--help"});

    EXPECT_EQ(result.status, kExitSuccess);
    EXPECT_THAT(result.out, HasSubstr("--max-players"));
}

class BadArgumentsTest : public CommandLineTest, public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(BadArgumentsTest, ExitTwoWithOneLineAndLeaveNoDatabase) {
    std::vector<std::string> arguments = GetParam();
    arguments.push_back("--db");
    arguments.push_back(database_.string());

    const CommandResult result = run(arguments);

    EXPECT_EQ(result.status, kExitBadArguments);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_THAT(result.err, ::testing::StartsWith("ferrylink-backend")) << result.err;
    EXPECT_FALSE(std::filesystem::exists(database_));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, BadArgumentsTest,
    ::testing::Values(std::vector<std::string>{"frobnicate"},
                      std::vector<std::string>{"partner"},
                      std::vector<std::string>{"partner", "add", "--title", "no host"},
                      std::vector<std::string>{"partner", "add", "--ip", "a", "--title", "t", "--port", "70000"},
                      std::vector<std::string>{"partner", "add", "--ip", "a", "--title", "t", "--port", "19132x"},
                      std::vector<std::string>{"partner", "add", "--ip", "a b", "--title", "t"},
                      std::vector<std::string>{"partner", "add", "--ip", "a", "--title", "t", "--status", "maybe"},
                      std::vector<std::string>{"partner", "remove", "first"},
                      std::vector<std::string>{"partner", "update", "1"},
                      std::vector<std::string>{"block", "add", ""},
                      std::vector<std::string>{"message", "add", "--version", "1.19.50"},
                      std::vector<std::string>{"message", "add", "--version", "", "text"},
                      std::vector<std::string>{"log", "list", "--limit", "0"},
                      std::vector<std::string>{"serve", "--cert", "/nonexistent/cert.pem", "--key", "/nonexistent/key"},
                      std::vector<std::string>{"serve", "--port", "65536"}),
    [](const ::testing::TestParamInfo<std::vector<std::string>>& info) {
        std::string name;
        for (const auto& argument : info.param) {
            for (char c : argument) {
                name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
            }
            name += '_';
        }
        return name + std::to_string(info.index);
    });

// The binary itself, serving on a port of the kernel's choice.
class ServeBinaryTest : public CommandLineTest {
protected:
    ~ServeBinaryTest() override {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        if (output_ >= 0) {
            close(output_);
        }
    }

    // Starts `serve` and reads its first line, which names the address.
    // Returns that line.
    std::string start(const std::vector<std::string>& extra = {}) {
        const auto& certificate = TestCertificate::shared();
        std::vector<std::string> arguments = {FERRYLINK_BACKEND_BINARY,
                                              "serve",
                                              "--cert",
                                              certificate.serverCertificate().string(),
                                              "--key",
                                              certificate.serverKey().string(),
                                              "--db",
                                              database_.string()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        if (std::find(extra.begin(), extra.end(), "--port") == extra.end()) {
            arguments.insert(arguments.end(), {"--port", "0"});
        }
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);

        int pipeEnds[2];
        EXPECT_EQ(pipe(pipeEnds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
        posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        EXPECT_EQ(posix_spawn(&child_, argv[0], &actions, &attributes, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        close(pipeEnds[1]);
        output_ = pipeEnds[0];
        return readLine();
    }

    // One line of the child's standard output; empty at its end.
    std::string readLine() {
        std::string line;
        char c = 0;
        while (read(output_, &c, 1) == 1) {
            if (c == '\n') {
                return line;
            }
            line += c;
        }
        return line;
    }

    std::string readRest() {
        std::string rest;
        char buffer[4096];
        ssize_t count = 0;
        while ((count = read(output_, buffer, sizeof buffer)) > 0) {
            rest.append(buffer, static_cast<std::size_t>(count));
        }
        return rest;
    }

    // The exit status once the child has ended.
    int wait() {
        int status = 0;
        waitpid(child_, &status, 0);
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    static int portIn(const std::string& line) {
        const auto at = line.find("https://127.0.0.1:");
        return at == std::string::npos ? -1 : std::stoi(line.substr(at + 18));
    }

    pid_t child_ = -1;
    int output_ = -1;
};

class StopSignalTest : public ServeBinaryTest, public ::testing::WithParamInterface<int> {};

TEST_P(StopSignalTest, ServesEditsAtOnceAndStopsCleanly) {
    const std::string banner = start();
    const int port = portIn(banner);
    ASSERT_GT(port, 0) << banner;
    const HttpsClient client("https://127.0.0.1:" + std::to_string(port),
                             TestCertificate::shared().caCertificate());
    EXPECT_EQ(client.get("/getStatus").body, "[]");

    ASSERT_EQ(runOnDatabase({"partner", "add", "--ip", "live.example", "--title", "Live"}).status, kExitSuccess);
    const json partners = json::parse(client.get("/getStatus").body);
    ASSERT_EQ(partners.size(), 1u);
    EXPECT_EQ(partners[0]["ip"], "live.example");
    EXPECT_EQ(client.postJson("/postLog", R"({"serverIp":"a","serverPort":"1","clientIp":"c"})").status, 201);

    ASSERT_EQ(kill(child_, GetParam()), 0);

    EXPECT_EQ(wait(), 0);
    const std::string rest = readRest();
    EXPECT_THAT(rest, HasSubstr("\"GET /getStatus\" 200"));
    EXPECT_THAT(rest, HasSubstr("\"POST /postLog\" 201"));
    EXPECT_THAT(rest, HasSubstr("stopped"));
    EXPECT_EQ(Store(database_).logEntries().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Signals, StopSignalTest, ::testing::Values(SIGTERM, SIGINT),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return info.param == SIGTERM ? std::string("Sigterm") : std::string("Sigint");
                         });

TEST_F(ServeBinaryTest, PortInUseExitsOne) {
    const int port = portIn(start());
    ASSERT_GT(port, 0);
    const pid_t first = child_;
    const int firstOutput = output_;
    child_ = -1;
    output_ = -1;

    const std::string second = start({"--port", std::to_string(port)});
    if (portIn(second) > 0) {
        kill(child_, SIGTERM);
        ADD_FAILURE() << "a second server shares the port: " << second;
    }
    EXPECT_EQ(wait(), kExitFailure);

    kill(first, SIGTERM);
    int status = 0;
    waitpid(first, &status, 0);
    close(firstOutput);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace ferrylink::backend
