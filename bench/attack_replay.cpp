// attack_replay: replays one hostile peer's traffic against a running bridge
// over loopback and measures what it costs the bridge and everyone else.
//
//   attack_replay --attack NAME --port P --pid PID [--seconds S]
//
// While the attack runs, a simulated console joins every second; the program
// prints one `key=value` line: the attacker's bytes out and the bridge's bytes
// back to it, the bridge's largest resident memory, the slowest join
// (discovery to hand-over) and the bridge's CPU time meanwhile, which
// bench/attacks.sh gathers into its table.
//
// The attacks:
//   nack     after a handshake, a NACK naming every sequence number, every tick
//   ack      after request 1 only, 2 KiB ACKs of 292 ranges as wide as they go
//   inflate  after network settings, a 15 KiB batch inflating to 16 MiB of
//            valid entries, again on a fresh connection as soon as it is dropped
//   zeros    the same with half a MiB of deflated zeros
//   splits   1-byte fragments of a split announced with 2^31-1 parts
//   flood    20,000 OpenConnectionRequest1 a second from 256 source addresses
//   spoof    the same, each from an address (a port) not seen before
//
// Every address is on 127.0.0.0/8 and every loop is bounded in time.

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bridge/sim/simulated_console.h"
#include "support/raknet_peer.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using SteadyClock = std::chrono::steady_clock;
using ferrylink::foundation::SocketAddress;
using ferrylink::sim::LinkFrame;
using ferrylink::testing::RakNetPeer;

const uint8_t offlineMagic[16] = {0x00, 0xFF, 0xFF, 0x00, 0xFE, 0xFE, 0xFE, 0xFE,
                                  0xFD, 0xFD, 0xFD, 0xFD, 0x12, 0x34, 0x56, 0x78};

struct Traffic {
    std::atomic<uint64_t> sent{0};
    std::atomic<uint64_t> received{0};
};

// What an attack is given: where the bridge is, until when to go on, and
// where to count its bytes.
struct Attack {
    SocketAddress bridge;
    SteadyClock::time_point until;
    Traffic& traffic;

    bool going() const { return SteadyClock::now() < until; }
};

void send(RakNetPeer& peer, const Bytes& bytes, Traffic& traffic) {
    peer.sendRaw(bytes);
    traffic.sent += bytes.size();
}

// Reads and counts whatever the bridge sent the peer: one read of up to a
// millisecond, then more until `window` has passed.
void drain(RakNetPeer& peer, Traffic& traffic, std::chrono::milliseconds window) {
    const auto end = SteadyClock::now() + window;
    do {
        if (auto datagram = peer.receiveRaw(1ms)) {
            traffic.received += datagram->size();
        }
    } while (SteadyClock::now() < end);
}

// Raw deflate of `size` bytes that `fill` writes a MiB at a time, so that
// half a GiB of zeros never has to be held.
Bytes deflated(size_t size, const std::function<void(Bytes&)>& fill) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
    Bytes chunk(1u << 20);
    Bytes output;
    Bytes out(1u << 16);
    for (size_t left = size; left > 0 || stream.avail_in > 0;) {
        const size_t take = std::min(left, chunk.size());
        chunk.resize(take);
        fill(chunk);
        left -= take;
        stream.next_in = chunk.data();
        stream.avail_in = static_cast<uInt>(take);
        do {
            stream.next_out = out.data();
            stream.avail_out = static_cast<uInt>(out.size());
            deflate(&stream, left == 0 ? Z_FINISH : Z_NO_FLUSH);
            output.insert(output.end(), out.data(), out.data() + (out.size() - stream.avail_out));
        } while (stream.avail_out == 0);
        if (left == 0) {
            break;
        }
    }
    deflateEnd(&stream);
    return output;
}

// A handshaken peer whose own datagrams the bridge keeps unacknowledged.
std::unique_ptr<RakNetPeer> connected(const Attack& attack) {
    auto peer = std::make_unique<RakNetPeer>(attack.bridge);
    peer->resendAfter = 300ms;
    if (!peer->connect()) {
        return nullptr;
    }
    peer->resendAfter.reset();
    peer->autoAck = false;
    return peer;
}

void nackEveryTick(const Attack& attack) {
    auto peer = connected(attack);
    if (!peer) {
        return;
    }
    const Bytes nack = RakNetPeer::encodeAcknowledgement({true, {{0, 0xFFFFFF}}});
    while (attack.going()) {
        send(*peer, nack, attack.traffic);
        drain(*peer, attack.traffic, 10ms);
    }
}

void wideAcks(const Attack& attack) {
    RakNetPeer peer(attack.bridge);
    peer.sendOpenConnectionRequest1(11, 1400);
    attack.traffic.sent += 1400;
    std::vector<std::pair<uint32_t, uint32_t>> ranges(292, {0, 0xFFFFFF});
    const Bytes ack = RakNetPeer::encodeAcknowledgement({false, ranges});
    while (attack.going()) {
        send(peer, ack, attack.traffic);
        drain(peer, attack.traffic, 10ms);
    }
}

// Batches as a console of protocol 560 sends them: the first raw, every
// later one raw deflate, both behind 0xFE.
Bytes batch(Bytes body) {
    body.insert(body.begin(), 0xFE);
    return body;
}

void compressedBatches(const Attack& attack, size_t inflatedSize, const std::function<void(Bytes&)>& fill) {
    // RequestNetworkSettings for protocol 560.
    const Bytes settings = batch({0x06, 0xC1, 0x01, 0x00, 0x00, 0x02, 0x30});
    const Bytes bomb = batch(deflated(inflatedSize, fill));
    std::fprintf(stderr, "a batch of %zu bytes inflating to %zu\n", bomb.size(), inflatedSize);
    while (attack.going()) {
        auto peer = connected(attack);
        if (!peer) {
            continue;
        }
        peer->sendPayload(settings);
        peer->sendPayload(bomb);
        attack.traffic.sent += settings.size() + bomb.size();
        // Until the bridge lets go of this connection, or for a second.
        drain(*peer, attack.traffic, 1000ms);
    }
}

void inflatingEntries(const Attack& attack) {
    // Entries of one byte each, an id no console sends.
    compressedBatches(attack, 16u << 20, [](Bytes& chunk) {
        for (size_t i = 0; i < chunk.size(); ++i) {
            chunk[i] = i % 2 ? 0x7F : 0x01;
        }
    });
}

void inflatingZeros(const Attack& attack) {
    compressedBatches(attack, 520u << 20, [](Bytes& chunk) { std::fill(chunk.begin(), chunk.end(), 0); });
}

void endlessSplit(const Attack& attack) {
    while (attack.going()) {
        auto peer = connected(attack);
        if (!peer) {
            continue;
        }
        const auto until = std::min(attack.until, SteadyClock::now() + 1s);
        for (int32_t index = 0; SteadyClock::now() < until; index += 64) {
            std::vector<LinkFrame> fragments;
            for (int32_t i = 0; i < 64; ++i) {
                LinkFrame fragment = peer->frame({0x00});
                fragment.split = true;
                fragment.splitCount = 0x7FFFFFFF;
                fragment.splitId = 1;
                fragment.splitIndex = index + i;
                fragments.push_back(std::move(fragment));
            }
            peer->sendFrames(fragments);
            // A datagram's 4-byte header, then per fragment: flags, length,
            // message and order index with its channel, the split's count,
            // id and index, and the one payload byte.
            attack.traffic.sent += 4 + 64 * (1 + 2 + 3 + 4 + 10 + 1);
            drain(*peer, attack.traffic, 0ms);
        }
    }
}

// A UDP socket on 127.1.0.`host`, on a port of the kernel's choice,
// non-blocking both ways; -1 when it can't be had.
int floodSocket(int host) {
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl(0x7F010000u | static_cast<uint32_t>(host));
    if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof(from)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Request 1 twenty times a millisecond, by turns from 256 sockets. With
// `newAddressEach`, a socket is made anew (another port) before each of its
// turns, as a flood that forges a new source address for every request.
void requestFlood(const Attack& attack, bool newAddressEach) {
    std::vector<int> sockets;
    for (int host = 1; host <= 256; ++host) {
        if (int fd = floodSocket(host); fd >= 0) {
            sockets.push_back(fd);
        }
    }
    // Request 1: id, magic, RakNet 11, zeros to 28 bytes.
    Bytes request(28, 0);
    request[0] = 0x05;
    std::copy(std::begin(offlineMagic), std::end(offlineMagic), request.begin() + 1);
    request[17] = 11;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(attack.bridge.port().value_or(0)));
    Bytes reply(2048);
    auto drain = [&](int fd) {
        ssize_t got;
        while ((got = ::recv(fd, reply.data(), reply.size(), 0)) > 0) {
            attack.traffic.received += static_cast<uint64_t>(got);
        }
    };
    size_t next = 0;
    auto tick = SteadyClock::now();
    while (attack.going() && !sockets.empty()) {
        // Twenty a millisecond, each from the next socket.
        for (int i = 0; i < 20; ++i, ++next) {
            int& fd = sockets[next % sockets.size()];
            if (newAddressEach) {
                drain(fd);
                ::close(fd);
                fd = floodSocket(static_cast<int>(next % sockets.size()) + 1);
            }
            if (::sendto(fd, request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)) > 0) {
                attack.traffic.sent += request.size();
            }
        }
        std::ranges::for_each(sockets, drain);
        tick += 1ms;
        std::this_thread::sleep_until(tick);
    }
    for (int fd : sockets) {
        ::close(fd);
    }
}

const std::map<std::string, std::function<void(const Attack&)>>& attacks() {
    static const std::map<std::string, std::function<void(const Attack&)>> all = {
        {"nack", nackEveryTick},       {"ack", wideAcks},         {"inflate", inflatingEntries},
        {"zeros", inflatingZeros},     {"splits", endlessSplit},
        {"flood", [](const Attack& attack) { requestFlood(attack, false); }},
        {"spoof", [](const Attack& attack) { requestFlood(attack, true); }},
    };
    return all;
}

// Resident memory of a process in KiB, 0 once it is gone.
uint64_t residentKiB(int pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stoull(line.substr(6));
        }
    }
    return 0;
}

// CPU time a process has had so far, user and system, in milliseconds.
uint64_t cpuMillis(int pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text{std::istreambuf_iterator<char>(stat), {}};
    // The fields after the command's name, which ends in the last ')': state
    // first, then utime and stime as the 12th and 13th.
    std::istringstream fields(text.substr(std::min(text.size(), text.rfind(')') + 1)));
    std::string field;
    uint64_t ticks = 0;
    for (int index = 1; index <= 13 && fields >> field; ++index) {
        if (index >= 12) {
            ticks += std::stoull(field);
        }
    }
    return ticks * 1000 / static_cast<uint64_t>(::sysconf(_SC_CLK_TCK));
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Replays one hostile peer against a bridge on 127.0.0.1 and measures the damage."};
    std::string name;
    int port = 19132;
    int pid = 0;
    double seconds = 5;
    app.add_option("--attack", name, "Which attack")->required()->check(CLI::IsMember(attacks()));
    app.add_option("--port", port, "The bridge's UDP port on 127.0.0.1")->required();
    app.add_option("--pid", pid, "The bridge's process, for its memory")->required();
    app.add_option("--seconds", seconds, "How long the attack goes on")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    Traffic traffic;
    const auto start = SteadyClock::now();
    const auto until = start + std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(seconds));
    Attack attack{SocketAddress::makeResolving("127.0.0.1", port), until, traffic};

    const uint64_t cpuBefore = cpuMillis(pid);
    std::atomic<bool> done{false};
    std::atomic<uint64_t> peakKiB{residentKiB(pid)};
    std::thread memory([&] {
        while (!done) {
            peakKiB = std::max<uint64_t>(peakKiB, residentKiB(pid));
            std::this_thread::sleep_for(20ms);
        }
    });
    std::thread attacker([&] { attacks().at(name)(attack); });

    // A console joins every second while the attack goes on; the slowest
    // join counts, and one that never ends in a hand-over fails the run.
    double slowestMs = 0;
    int joins = 0;
    int failed = 0;
    std::this_thread::sleep_for(500ms);
    while (SteadyClock::now() + 1s < until) {
        ferrylink::sim::ConsoleOptions options;
        options.port = port;
        options.timeout = 10s;
        options.resendAfter = 500ms;
        const auto began = SteadyClock::now();
        auto report = ferrylink::sim::SimulatedConsole(options).join();
        const double ms = std::chrono::duration<double, std::milli>(SteadyClock::now() - began).count();
        ++joins;
        if (!report.transferred()) {
            ++failed;
        }
        slowestMs = std::max(slowestMs, ms);
        std::this_thread::sleep_until(began + 1s);
    }
    attacker.join();
    done = true;
    memory.join();
    const uint64_t cpuMs = cpuMillis(pid) - cpuBefore;

    const double ratio = traffic.sent ? static_cast<double>(traffic.received) / static_cast<double>(traffic.sent) : 0;
    std::printf(
        "attack=%s sent=%llu received=%llu ratio=%.2f peak_rss_kib=%llu joins=%d failed=%d slowest_join_ms=%.0f "
        "cpu_ms=%llu\n",
        name.c_str(), static_cast<unsigned long long>(traffic.sent.load()),
        static_cast<unsigned long long>(traffic.received.load()), ratio, static_cast<unsigned long long>(peakKiB.load()),
        joins, failed, slowestMs, static_cast<unsigned long long>(cpuMs));
    return failed == 0 && residentKiB(pid) > 0 ? 0 : 1;
}
