// The ferrylink program as a user runs it: a process with arguments, output
// and an exit status.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::filesystem::path programPath() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ferrylink";
}

// A UDP port on loopback that nobody holds right now.
int freeUdpPort() {
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    socklen_t length = sizeof(address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

// A running ferrylink with its standard output and error on one pipe.
class Process {
public:
    explicit Process(const std::vector<std::string>& arguments) {
        int pipeEnds[2];
        EXPECT_EQ(::pipe2(pipeEnds, O_CLOEXEC), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(pipeEnds[1], STDOUT_FILENO);
            ::dup2(pipeEnds[1], STDERR_FILENO);
            std::vector<char*> argv;
            std::string program = programPath().string();
            argv.push_back(program.data());
            std::vector<std::string> copies = arguments;
            for (auto& argument : copies) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            ::execv(program.c_str(), argv.data());
            ::_exit(127);
        }
        ::close(pipeEnds[1]);
        output_ = pipeEnds[0];
    }

    ~Process() {
        if (pid_ > 0 && !exited_) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(output_);
    }

    // Reads output until `text` has appeared or the patience runs out.
    bool waitForOutput(const std::string& text, std::chrono::seconds patience = std::chrono::seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + patience;
        while (text_.find(text) == std::string::npos) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !readSome(static_cast<int>(left.count()))) {
                return false;
            }
        }
        return true;
    }

    // Waits for the exit and gives the status (-1 for a signal).
    int wait() {
        while (readSome(20000)) {
        }
        int status = 0;
        ::waitpid(pid_, &status, 0);
        exited_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void signal(int number) { ::kill(pid_, number); }
    const std::string& output() const { return text_; }

private:
    bool readSome(int timeoutMillis) {
        pollfd ready{output_, POLLIN, 0};
        if (::poll(&ready, 1, timeoutMillis) != 1) {
            return false;
        }
        char buffer[4096];
        ssize_t count = ::read(output_, buffer, sizeof(buffer));
        if (count <= 0) {
            return false;
        }
        text_.append(buffer, static_cast<size_t>(count));
        return true;
    }

    pid_t pid_ = -1;
    int output_ = -1;
    bool exited_ = false;
    std::string text_;
};

// The whole join through the program is the client compatibility suite's.
// The settings come from a config file, as the service has them.
TEST(FerrylinkRun, QuietBridgeFromAConfigFileAnswersAPingAndSigtermStopsWithStatusZero) {
    int port = freeUdpPort();
    auto config = std::filesystem::path(::testing::TempDir()) / "ferrylink.conf";
    std::ofstream(config) << "[run]\nhost = \"127.0.0.1\"\nport = 19133\nquiet = true\n"
                          << "listen-host = \"127.0.0.1\"\nlisten-port = " << port << "\n";
    Process bridge({"--config", config.string(), "run"});
    ASSERT_TRUE(bridge.waitForOutput("Server will transfer to 127.0.0.1:19133")) << bridge.output();
    EXPECT_NE(bridge.output().find("Server running and listening on 127.0.0.1:" + std::to_string(port)),
              std::string::npos);

    Process ping({"ping", "127.0.0.1", std::to_string(port)});
    EXPECT_EQ(ping.wait(), 0) << ping.output();
    for (const std::string& line : {"address:   127.0.0.1:" + std::to_string(port), std::string("\ntime:      "),
                                   std::string("motd:      Ferrylink"), std::string("protocol:  560"),
                                   std::string("players:   0/99"), std::string("game mode: Creative")}) {
        EXPECT_NE(ping.output().find(line), std::string::npos) << line << " in " << ping.output();
    }

    bridge.signal(SIGTERM);
    EXPECT_EQ(bridge.wait(), 0) << bridge.output();
    EXPECT_NE(bridge.output().find("Server shutting down!"), std::string::npos) << bridge.output();
    EXPECT_EQ(bridge.output().find("Unconnected: "), std::string::npos) << bridge.output();
}

TEST(FerrylinkRun, ASecondBridgeOnTheSamePortExitsOneAndSaysWhy) {
    const std::string port = std::to_string(freeUdpPort());
    Process first({"run", "127.0.0.1", "--listen-host", "127.0.0.1", "--listen-port", port});
    ASSERT_TRUE(first.waitForOutput("Listening on UDP 127.0.0.1:" + port)) << first.output();

    Process second({"run", "127.0.0.1", "--listen-host", "127.0.0.1", "--listen-port", port});
    EXPECT_EQ(second.wait(), 1) << second.output();
    EXPECT_NE(second.output().find("ferrylink: Another Ferrylink is already listening on UDP port " + port + ".\n"),
              std::string::npos)
        << second.output();
    first.signal(SIGTERM);
    EXPECT_EQ(first.wait(), 0) << first.output();
}

// A label longer than 63 letters fails in the resolver before any query is sent.
TEST(FerrylinkPing, ANameThatDoesNotResolveAndASilentPortAreToldApartWithStatusOne) {
    const std::string name = std::string(64, 'x') + ".test";
    Process unresolved({"ping", name});
    EXPECT_EQ(unresolved.wait(), 1);
    EXPECT_NE(unresolved.output().find(name + ": name does not resolve"), std::string::npos) << unresolved.output();

    const std::string port = std::to_string(freeUdpPort());
    Process silent({"ping", "127.0.0.1", port, "--timeout", "200"});
    EXPECT_EQ(silent.wait(), 1);
    EXPECT_NE(silent.output().find("127.0.0.1:" + port + " within 200 ms: closed port or no server"), std::string::npos)
        << silent.output();
}

class BadArguments : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(BadArguments, OneLineOfErrorAndStatusTwo) {
    Process command(GetParam());
    EXPECT_EQ(command.wait(), 2);
    auto& text = command.output();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_EQ(text.rfind("ferrylink: ", 0), 0u) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Commands, BadArguments,
    ::testing::Values(std::vector<std::string>{"run"}, std::vector<std::string>{"run", "h", "0"},
                      std::vector<std::string>{"run", "h", "65536"}, std::vector<std::string>{"run", "h", "abc"},
                      std::vector<std::string>{"run", "h", "--listen-port", "-1"}, std::vector<std::string>{"run", " "},
                      std::vector<std::string>{"ping"}, std::vector<std::string>{"ping", "h", "19132x"},
                      std::vector<std::string>{"fly"}));

}  // namespace
