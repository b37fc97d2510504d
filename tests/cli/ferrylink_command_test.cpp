// The ferrylink program as a user runs it: a process with arguments, output
// and an exit status.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

std::filesystem::path programPath() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ferrylink";
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

    // Waits for the exit and gives the status (-1 for a signal).
    int wait() {
        while (readSome(20000)) {
        }
        int status = 0;
        ::waitpid(pid_, &status, 0);
        exited_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

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

// A whole run of the installed program, a second bridge and pings are
// installed_bridge_test.sh's; the join of every client, the compatibility suite's.
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
