// load_generator: drives a running bridge over loopback and prints what it
// measured as `key=value` lines, which bench/run.sh gathers into its table.
//
//   load_generator joins --port P --consoles N [--rounds R] [--warmup-rounds W] [--watch-pid PID]
//       N simulated consoles join at once, R times over; latency of each join
//       from its first OpenConnectionRequest1 to its TransferPacket. W rounds
//       before them are printed but not counted.
//   load_generator pings --target NAME=PORT... [--seconds S] [--rounds R]
//       UnconnectedPing floods from 4 sockets with 32 in flight each, replies
//       per second; the rounds of the targets interleave.
//   load_generator echo [--port 0] [--seconds S]
//       A bare UDP echo with recvmmsg and sendmmsg on one thread, the ceiling
//       of the ping flood.
//   load_generator watch --pid PID [--seconds 30] [--period 5]
//       CPU share and resident memory of a process, from /proc.
//   load_generator free-port
//       A UDP port on 127.0.0.1 that nothing holds right now.
//
// Every address is 127.0.0.1 and every loop is bounded in count and in time.

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bridge/sim/simulated_console.h"

namespace {

using SteadyClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;
using Seconds = std::chrono::duration<double>;
using ferrylink::sim::ConsoleOptions;
using ferrylink::sim::ConsoleReport;
using ferrylink::sim::SimulatedConsole;

// --- Statistics -------------------------------------------------------------------------

// The sample below which `fraction` of all samples lie, by nearest rank.
double percentile(std::vector<double> samples, double fraction) {
    if (samples.empty()) {
        return 0;
    }
    std::sort(samples.begin(), samples.end());
    auto rank = static_cast<size_t>(std::ceil(fraction * static_cast<double>(samples.size())));
    return samples[std::clamp<size_t>(rank, 1, samples.size()) - 1];
}

std::string fixed(double value, int decimals = 1) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

SteadyClock::duration seconds(double count) { return std::chrono::duration_cast<SteadyClock::duration>(Seconds(count)); }

// --- Loopback sockets ---------------------------------------------------------------------

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// A UDP socket bound to 127.0.0.1:`port` (0: any), or -1.
int boundSocket(uint16_t port) {
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local = loopback(port);
    if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

uint16_t localPort(int fd) {
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length);
    return ntohs(local.sin_port);
}

// --- /proc of the bridge ----------------------------------------------------------------

struct ProcessSample {
    SteadyClock::time_point at;
    long cpuTicks = 0;  // user + system of all threads, live and ended, in clock ticks
    long long runNs = 0;  // time on a CPU of the live threads, in nanoseconds
    long rssKiB = 0;
    long anonKiB = 0;  // of which the process's own memory
    long fileKiB = 0;  // and mapped files: the program and its libraries
    long hwmKiB = 0;
    long drops = 0;  // datagrams the kernel dropped at the watched UDP port
};

// The schedulers' own count of time on a CPU, summed over the live threads:
// finer than the 10 ms ticks of /proc/<pid>/stat, which a short window of an
// idle process can't resolve.
long long runNanoseconds(pid_t pid) {
    long long total = 0;
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
        std::ifstream schedstat(task.path() / "schedstat");
        long long ns = 0;
        if (schedstat >> ns) {
            total += ns;
        }
    }
    return total;
}

// The drops column of /proc/<pid>/net/udp for the socket bound to 127.0.0.1:`port`.
long socketDrops(pid_t pid, int port) {
    char local[32];
    std::snprintf(local, sizeof(local), "0100007F:%04X", port);
    std::ifstream table("/proc/" + std::to_string(pid) + "/net/udp");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot;
        std::string address;
        fields >> slot >> address;
        if (address != local) {
            continue;
        }
        std::string last;
        for (std::string field; fields >> field;) {
            last = field;
        }
        return std::stol(last);
    }
    return 0;
}

std::optional<ProcessSample> sampleProcess(pid_t pid, int port) {
    ProcessSample sample;
    sample.at = SteadyClock::now();
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) {
        return std::nullopt;
    }
    // The command name stands in parentheses and may hold spaces: count from
    // behind it, where field 3 (state) begins; utime and stime are 14 and 15.
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string field;
    for (int index = 3; fields >> field && index <= 15; ++index) {
        if (index == 14 || index == 15) {
            sample.cpuTicks += std::stol(field);
        }
    }
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    while (std::getline(status, line)) {
        if (line.starts_with("VmRSS:")) {
            sample.rssKiB = std::stol(line.substr(6));
        } else if (line.starts_with("RssAnon:")) {
            sample.anonKiB = std::stol(line.substr(8));
        } else if (line.starts_with("RssFile:")) {
            sample.fileKiB = std::stol(line.substr(8));
        } else if (line.starts_with("VmHWM:")) {
            sample.hwmKiB = std::stol(line.substr(6));
        }
    }
    sample.runNs = runNanoseconds(pid);
    if (port > 0) {
        sample.drops = socketDrops(pid, port);
    }
    return sample;
}

// Samples a process every `period` on a thread of its own until stopped, or
// for `limit` at most.
class ProcessWatch {
public:
    ProcessWatch(pid_t pid, int port, std::chrono::milliseconds period, SteadyClock::duration limit)
        : pid_(pid), port_(port) {
        if (pid_ <= 0) {
            return;
        }
        thread_ = std::thread([this, period, end = SteadyClock::now() + limit] {
            std::unique_lock lock(mutex_);
            do {
                if (auto sample = sampleProcess(pid_, port_)) {
                    samples_.push_back(*sample);
                }
            } while (SteadyClock::now() < end &&
                     !stopped_.wait_until(lock, std::min(SteadyClock::now() + period, end), [this] { return stop_; }));
            if (auto sample = sampleProcess(pid_, port_)) {
                samples_.push_back(*sample);
            }
        });
    }

    ~ProcessWatch() { stop(); }

    void stop() {
        if (!thread_.joinable()) {
            return;
        }
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        stopped_.notify_all();
        thread_.join();
    }

    // CPU in percent of one core over each window between samples, resident
    // memory at each sample, the kernel's high-water mark and the datagrams
    // dropped at the port meanwhile. The mean over the whole watch comes from
    // /proc/<pid>/stat; the windows from the scheduler's nanoseconds, or from
    // stat's ticks where a thread ended within the window.
    void report(const std::string& label) {
        stop();
        if (samples_.size() < 2) {
            return;
        }
        const double ticksPerSecond = static_cast<double>(::sysconf(_SC_CLK_TCK));
        std::vector<double> shares;
        std::vector<double> resident;
        std::vector<double> anon;
        std::vector<double> file;
        for (size_t i = 1; i < samples_.size(); ++i) {
            const auto& before = samples_[i - 1];
            const auto& after = samples_[i];
            double elapsed = Seconds(after.at - before.at).count();
            // A last window much shorter than the period says little about the share.
            if (elapsed > 0.05) {
                double busy = after.runNs >= before.runNs
                                  ? static_cast<double>(after.runNs - before.runNs) / 1e9
                                  : static_cast<double>(after.cpuTicks - before.cpuTicks) / ticksPerSecond;
                shares.push_back(100.0 * busy / elapsed);
            }
            resident.push_back(static_cast<double>(after.rssKiB));
            anon.push_back(static_cast<double>(after.anonKiB));
            file.push_back(static_cast<double>(after.fileKiB));
        }
        const auto& first = samples_.front();
        const auto& last = samples_.back();
        double elapsed = Seconds(last.at - first.at).count();
        double ticks = static_cast<double>(last.cpuTicks - first.cpuTicks);
        std::cout << label << " cpu_median_pct=" << fixed(percentile(shares, 0.5), 2)
                  << " cpu_p99_pct=" << fixed(percentile(shares, 0.99), 2)
                  << " cpu_max_pct=" << fixed(percentile(shares, 1.0), 2)
                  << " cpu_mean_pct=" << fixed(100.0 * ticks / ticksPerSecond / elapsed, 3)
                  << " cpu_ms=" << fixed(1000.0 * ticks / ticksPerSecond, 0)
                  << " rss_median_kib=" << fixed(percentile(resident, 0.5), 0)
                  << " rss_max_kib=" << fixed(percentile(resident, 1.0), 0)
                  << " anon_median_kib=" << fixed(percentile(anon, 0.5), 0)
                  << " file_median_kib=" << fixed(percentile(file, 0.5), 0) << " hwm_kib=" << last.hwmKiB
                  << " drops=" << last.drops - first.drops << " windows=" << shares.size()
                  << " seconds=" << fixed(elapsed, 2) << std::endl;
    }

private:
    pid_t pid_;
    int port_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable stopped_;
    bool stop_ = false;
    std::vector<ProcessSample> samples_;
};

// --- Joins ----------------------------------------------------------------------------------

struct JoinSettings {
    int port = 19132;
    int consoles = 1;
    int rounds = 1;
    int32_t protocol = 560;
    int raknet = 11;
    int timeoutMs = 60000;
    int resendMs = 500;
    int pauseMs = 200;
    // Rounds run first and left out of the figures: a fresh generator's first
    // crowd pays for its own start (the memory arenas of its threads, first
    // touches of their pages) on the cores the bridge runs on.
    int warmupRounds = 0;
    pid_t watchPid = 0;
};

// What became of a number of joins.
struct JoinTally {
    std::vector<double> latenciesMs;
    int transferred = 0;
    int failed = 0;
    std::vector<std::string> firstProblems;

    void add(const ConsoleReport& report) {
        if (report.transferred() && report.clean() && report.connectSentAt && report.transferReadAt) {
            ++transferred;
            latenciesMs.push_back(Milliseconds(*report.transferReadAt - *report.connectSentAt).count());
            return;
        }
        ++failed;
        note(report.problems.empty() ? "no transfer" : report.problems.front());
    }
    void add(const JoinTally& other) {
        latenciesMs.insert(latenciesMs.end(), other.latenciesMs.begin(), other.latenciesMs.end());
        transferred += other.transferred;
        failed += other.failed;
        for (const auto& problem : other.firstProblems) {
            note(problem);
        }
    }
    void note(const std::string& problem) {
        if (firstProblems.size() < 5) {
            firstProblems.push_back(problem);
        }
    }
};

struct Round {
    JoinTally tally;
    // From the moment the consoles were let go to the last TransferPacket.
    double makespanMs = 0;
};

// One round: a thread per console. Each discovers the bridge and builds its
// login, then waits at the start line until all have come or the time is up;
// all are let go together.
Round joinAtOnce(const JoinSettings& settings) {
    std::mutex mutex;
    std::condition_variable changed;
    int lined = 0;  // waiting at the start line, or out before reaching it
    bool go = false;
    SteadyClock::time_point released;

    std::vector<ConsoleReport> reports(static_cast<size_t>(settings.consoles));
    std::vector<std::thread> threads;
    threads.reserve(reports.size());
    for (int index = 0; index < settings.consoles; ++index) {
        threads.emplace_back([&, index] {
            bool reachedLine = false;
            ConsoleOptions options;
            options.host = "127.0.0.1";
            options.port = settings.port;
            options.protocol = settings.protocol;
            options.raknetVersion = static_cast<uint8_t>(settings.raknet);
            options.timeout = std::chrono::milliseconds(settings.timeoutMs);
            options.displayName = "Bench" + std::to_string(index);
            if (settings.resendMs > 0) {
                options.resendAfter = std::chrono::milliseconds(settings.resendMs);
            }
            options.beforeConnect = [&] {
                std::unique_lock lock(mutex);
                reachedLine = true;
                ++lined;
                changed.notify_all();
                changed.wait(lock, [&] { return go; });
            };
            reports[static_cast<size_t>(index)] = SimulatedConsole(options).join();
            if (!reachedLine) {
                std::lock_guard lock(mutex);
                ++lined;
                changed.notify_all();
            }
        });
    }
    {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, std::chrono::milliseconds(settings.timeoutMs) / 2,
                         [&] { return lined == settings.consoles; });
    }
    // The bridge sends queued replies on a 10 ms tick. A start at a random
    // point of that tick keeps one round's timing from setting the next one's.
    static thread_local std::mt19937 random{std::random_device{}()};
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 9999)(random)));
    {
        std::lock_guard lock(mutex);
        go = true;
        released = SteadyClock::now();
    }
    changed.notify_all();
    for (auto& thread : threads) {
        thread.join();
    }
    Round round;
    SteadyClock::time_point lastTransfer = released;
    for (const auto& report : reports) {
        round.tally.add(report);
        if (report.transferReadAt) {
            lastTransfer = std::max(lastTransfer, *report.transferReadAt);
        }
    }
    round.makespanMs = Milliseconds(lastTransfer - released).count();
    return round;
}

void printTally(const std::string& label, const JoinTally& tally) {
    std::cout << label << " transferred=" << tally.transferred << " failed=" << tally.failed
              << " median_ms=" << fixed(percentile(tally.latenciesMs, 0.5), 2)
              << " p99_ms=" << fixed(percentile(tally.latenciesMs, 0.99), 2)
              << " max_ms=" << fixed(percentile(tally.latenciesMs, 1.0), 2);
}

int runJoins(const JoinSettings& settings) {
    for (int index = 0; index < settings.warmupRounds; ++index) {
        Round round = joinAtOnce(settings);
        printTally("warmup=" + std::to_string(index), round.tally);
        std::cout << " makespan_ms=" << fixed(round.makespanMs, 1) << std::endl;
        std::this_thread::sleep_for(std::chrono::milliseconds(settings.pauseMs));
    }
    // Rounds are bounded by their consoles' timeouts; the watch by all of them.
    ProcessWatch watch(settings.watchPid, settings.port, std::chrono::milliseconds(250),
                       std::chrono::milliseconds(settings.timeoutMs) * settings.rounds * 2);
    JoinTally all;
    std::vector<double> rates;
    for (int index = 0; index < settings.rounds; ++index) {
        Round round = joinAtOnce(settings);
        double rate = 1000.0 * round.tally.transferred / std::max(round.makespanMs, 1.0);
        rates.push_back(rate);
        printTally("round=" + std::to_string(index), round.tally);
        std::cout << " makespan_ms=" << fixed(round.makespanMs, 1) << " per_s=" << fixed(rate) << std::endl;
        all.add(round.tally);
        // Lets the last disconnects reach the bridge before the next round.
        std::this_thread::sleep_for(std::chrono::milliseconds(settings.pauseMs));
    }
    printTally("joins consoles=" + std::to_string(settings.consoles) + " rounds=" + std::to_string(settings.rounds), all);
    // For rates the tail that matters is the slow one: p99 is the rate that
    // 99 % of the rounds reached.
    std::cout << " per_s_median=" << fixed(percentile(rates, 0.5)) << " per_s_p99=" << fixed(percentile(rates, 0.01))
              << std::endl;
    for (const auto& problem : all.firstProblems) {
        std::cerr << "problem: " << problem << "\n";
    }
    watch.report("watch");
    return all.failed == 0 ? 0 : 1;
}

// --- Pings and the echo -----------------------------------------------------------------------

constexpr uint8_t MAGIC[16] = {0x00, 0xFF, 0xFF, 0x00, 0xFE, 0xFE, 0xFE, 0xFE,
                               0xFD, 0xFD, 0xFD, 0xFD, 0x12, 0x34, 0x56, 0x78};

// An UnconnectedPing: id, client time, the offline magic, client id.
std::vector<uint8_t> unconnectedPing() {
    std::vector<uint8_t> bytes{0x01, 0, 0, 0, 0, 0, 0, 0, 1};
    bytes.insert(bytes.end(), std::begin(MAGIC), std::end(MAGIC));
    bytes.insert(bytes.end(), {0xB0, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6, 0xB7});
    return bytes;
}

struct PingTarget {
    std::string name;
    int port = 0;
};

struct PingSettings {
    std::vector<PingTarget> targets;
    double seconds = 2;
    int rounds = 3;
    int sockets = 4;
    int window = 32;
};

// Up to this many datagrams per recvmmsg or sendmmsg, in the flood and the echo.
constexpr int BATCH = 64;

// `sockets` sockets each keep `window` pings in flight for `seconds`, on one
// thread: every reply is counted and answered by the next ping; 50 ms
// without a reply refills the windows, for pings lost in a full receive
// queue. Replies per second.
double pingFlood(int port, const PingSettings& settings) {
    std::vector<pollfd> fds;
    sockaddr_in server = loopback(static_cast<uint16_t>(port));
    for (int i = 0; i < settings.sockets; ++i) {
        int fd = boundSocket(0);
        if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&server), sizeof(server)) != 0) {
            std::perror("ping socket");
            return 0;
        }
        fds.push_back(pollfd{fd, POLLIN, 0});
    }
    auto ping = unconnectedPing();
    std::vector<mmsghdr> messages(BATCH);
    std::vector<iovec> vectors(BATCH);
    std::vector<std::array<uint8_t, 2048>> replies(BATCH);
    auto sendPings = [&](int fd, int count) {
        for (int sent = 0; sent < count;) {
            int now = std::min(count - sent, BATCH);
            for (int i = 0; i < now; ++i) {
                vectors[i] = iovec{ping.data(), ping.size()};
                messages[i] = mmsghdr{};
                messages[i].msg_hdr.msg_iov = &vectors[i];
                messages[i].msg_hdr.msg_iovlen = 1;
            }
            int done = ::sendmmsg(fd, messages.data(), static_cast<unsigned>(now), 0);
            if (done <= 0) {
                return;
            }
            sent += done;
        }
    };
    long replyCount = 0;
    const auto begin = SteadyClock::now();
    const auto deadline = begin + seconds(settings.seconds);
    for (auto& entry : fds) {
        sendPings(entry.fd, settings.window);
    }
    while (SteadyClock::now() < deadline) {
        if (::poll(fds.data(), fds.size(), 50) <= 0) {
            for (auto& entry : fds) {
                sendPings(entry.fd, settings.window);
            }
            continue;
        }
        for (auto& entry : fds) {
            if (!(entry.revents & POLLIN)) {
                continue;
            }
            for (int i = 0; i < BATCH; ++i) {
                vectors[i] = iovec{replies[i].data(), replies[i].size()};
                messages[i] = mmsghdr{};
                messages[i].msg_hdr.msg_iov = &vectors[i];
                messages[i].msg_hdr.msg_iovlen = 1;
            }
            int got = ::recvmmsg(entry.fd, messages.data(), BATCH, MSG_DONTWAIT, nullptr);
            if (got > 0) {
                replyCount += got;
                sendPings(entry.fd, got);
            }
        }
    }
    double elapsed = Seconds(SteadyClock::now() - begin).count();
    for (auto& entry : fds) {
        ::close(entry.fd);
    }
    return static_cast<double>(replyCount) / elapsed;
}

// The rounds of the targets interleave, so that a change of the machine's
// load falls on all of them alike.
int runPings(const PingSettings& settings) {
    std::vector<std::vector<double>> rates(settings.targets.size());
    for (int round = 0; round < settings.rounds; ++round) {
        for (size_t which = 0; which < settings.targets.size(); ++which) {
            const auto& target = settings.targets[which];
            rates[which].push_back(pingFlood(target.port, settings));
            std::cout << "round=" << round << " target=" << target.name << " per_s=" << fixed(rates[which].back(), 0)
                      << std::endl;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
    }
    for (size_t which = 0; which < settings.targets.size(); ++which) {
        std::cout << "pings target=" << settings.targets[which].name
                  << " per_s_median=" << fixed(percentile(rates[which], 0.5), 0)
                  << " per_s_min=" << fixed(percentile(rates[which], 0.0), 0) << std::endl;
    }
    return 0;
}

std::atomic<bool> echoStopped{false};

// The least a UDP server can do, the ceiling of the ping flood: read what
// came, a batch at a time, and send it back the same way, on one thread,
// until told to stop or the time is up.
int runEcho(int port, double lifetime) {
    int fd = boundSocket(static_cast<uint16_t>(port));
    if (fd < 0) {
        std::perror("echo socket");
        return 1;
    }
    std::cout << "port=" << localPort(fd) << std::endl;
    std::signal(SIGTERM, [](int) { echoStopped = true; });
    std::signal(SIGINT, [](int) { echoStopped = true; });
    const auto deadline = SteadyClock::now() + seconds(lifetime);
    std::vector<mmsghdr> messages(BATCH);
    std::vector<iovec> vectors(BATCH);
    std::vector<sockaddr_in> peers(BATCH);
    std::vector<std::array<uint8_t, 2048>> datagrams(BATCH);
    while (!echoStopped && SteadyClock::now() < deadline) {
        pollfd waiting{fd, POLLIN, 0};
        if (::poll(&waiting, 1, 100) <= 0) {
            continue;
        }
        for (int i = 0; i < BATCH; ++i) {
            vectors[i] = iovec{datagrams[i].data(), datagrams[i].size()};
            messages[i] = mmsghdr{};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_name = &peers[i];
            messages[i].msg_hdr.msg_namelen = sizeof(peers[i]);
        }
        int got = ::recvmmsg(fd, messages.data(), BATCH, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < got; ++i) {
            vectors[i].iov_len = messages[i].msg_len;
        }
        if (got > 0) {
            ::sendmmsg(fd, messages.data(), static_cast<unsigned>(got), 0);
        }
    }
    ::close(fd);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Drives a bridge on this machine with simulated consoles and pings, over 127.0.0.1."};
    app.require_subcommand(1);

    JoinSettings joins;
    auto* joinCommand = app.add_subcommand("joins", "Consoles joining at once, round after round");
    joinCommand->add_option("--port", joins.port, "UDP port of the bridge on 127.0.0.1")->required()->check(CLI::Range(1, 65535));
    joinCommand->add_option("--consoles", joins.consoles, "Consoles per round")->capture_default_str()->check(CLI::Range(1, 2000));
    joinCommand->add_option("--rounds", joins.rounds, "Rounds")->capture_default_str()->check(CLI::Range(1, 500));
    joinCommand->add_option("--protocol", joins.protocol, "Game protocol of the consoles")->capture_default_str();
    joinCommand->add_option("--raknet", joins.raknet, "RakNet protocol of the consoles")
        ->capture_default_str()
        ->check(CLI::IsMember({10, 11}));
    joinCommand->add_option("--timeout-ms", joins.timeoutMs, "Bound of one console, line-up included")
        ->capture_default_str()
        ->check(CLI::Range(1000, 120000));
    joinCommand->add_option("--resend-ms", joins.resendMs, "Consoles repeat what got no answer after this long (0: never)")
        ->capture_default_str()
        ->check(CLI::Range(0, 10000));
    joinCommand->add_option("--pause-ms", joins.pauseMs, "Pause between rounds")->capture_default_str()->check(CLI::Range(0, 10000));
    joinCommand->add_option("--warmup-rounds", joins.warmupRounds, "Rounds run first and not counted")
        ->capture_default_str()
        ->check(CLI::Range(0, 10));
    joinCommand->add_option("--watch-pid", joins.watchPid, "Sample CPU, memory and socket drops of this process");

    PingSettings pings;
    std::vector<std::string> pingTargets;
    auto* pingCommand = app.add_subcommand("pings", "UnconnectedPing floods, replies per second, rounds interleaved");
    pingCommand->add_option("--target", pingTargets, "name=port on 127.0.0.1, flooded in turn")->required();
    pingCommand->add_option("--seconds", pings.seconds, "Length of a round")->capture_default_str()->check(CLI::Range(0.1, 30.0));
    pingCommand->add_option("--rounds", pings.rounds, "Rounds per target")->capture_default_str()->check(CLI::Range(1, 100));
    pingCommand->add_option("--sockets", pings.sockets, "Sockets of the flood")->capture_default_str()->check(CLI::Range(1, 64));
    pingCommand->add_option("--window", pings.window, "Pings in flight per socket")->capture_default_str()->check(CLI::Range(1, 1024));

    int echoPort = 0;
    double echoSeconds = 120;
    auto* echoCommand = app.add_subcommand("echo", "A bare UDP echo on 127.0.0.1; prints port=N");
    echoCommand->add_option("--port", echoPort, "UDP port (0: a free one)")->capture_default_str()->check(CLI::Range(0, 65535));
    echoCommand->add_option("--seconds", echoSeconds, "Ends by itself after this long")->capture_default_str()->check(CLI::Range(1.0, 3600.0));

    int watchPid = 0;
    double watchSeconds = 30;
    double watchPeriod = 5;
    auto* watchCommand = app.add_subcommand("watch", "CPU share and resident memory of a process over a while");
    watchCommand->add_option("--pid", watchPid, "Process to watch")->required();
    watchCommand->add_option("--seconds", watchSeconds, "How long")->capture_default_str()->check(CLI::Range(1.0, 600.0));
    watchCommand->add_option("--period", watchPeriod, "Length of a window")->capture_default_str()->check(CLI::Range(0.1, 60.0));

    auto* freePortCommand = app.add_subcommand("free-port", "Prints a UDP port on 127.0.0.1 that is free now");

    CLI11_PARSE(app, argc, argv);

    if (*joinCommand) {
        return runJoins(joins);
    }
    if (*pingCommand) {
        for (const auto& target : pingTargets) {
            size_t equals = target.find('=');
            int port = equals == std::string::npos ? 0 : std::atoi(target.c_str() + equals + 1);
            if (port <= 0 || port > 65535) {
                std::cerr << "--target wants name=port, not " << target << "\n";
                return 2;
            }
            pings.targets.push_back(PingTarget{target.substr(0, equals), port});
        }
        return runPings(pings);
    }
    if (*echoCommand) {
        return runEcho(echoPort, echoSeconds);
    }
    if (*watchCommand) {
        ProcessWatch watch(watchPid, 0, std::chrono::milliseconds(static_cast<long>(watchPeriod * 1000)),
                           seconds(watchSeconds));
        std::this_thread::sleep_for(seconds(watchSeconds));
        watch.report("watch");
        return 0;
    }
    if (*freePortCommand) {
        int fd = boundSocket(0);
        if (fd < 0) {
            std::perror("free-port");
            return 1;
        }
        std::cout << localPort(fd) << std::endl;
        ::close(fd);
    }
    return 0;
}
