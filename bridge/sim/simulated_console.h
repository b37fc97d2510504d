#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ferrylink::sim {

// What a simulated console is told before it joins.
struct ConsoleOptions {
    // The bridge to join. Only loopback makes sense here; the console binds
    // a loopback socket of the same family.
    std::string host = "127.0.0.1";
    int port = 19132;
    // The game protocol of the console: its login, the layouts it reads and
    // the envelope of its login.
    int32_t protocol = 560;
    // 11 negotiates compression first; 10 compresses from the first packet.
    // Unset, as consoles of the protocol do: 11 from v554 on, else 10.
    std::optional<uint8_t> raknetVersion;
    uint16_t mtu = 1400;
    std::string displayName = "Console";
    // For the whole join, discovery to transfer.
    std::chrono::milliseconds timeout{20000};
    // Where the resource bundle lies, for checking the tables the bridge
    // passes through; empty: the places the bridge itself searches.
    std::filesystem::path bundleFolder;
    // Called on the joining thread right before the first
    // OpenConnectionRequest1, when discovery is done and the login is built.
    // Load generators line many consoles up here to let them go at once.
    std::function<void()> beforeConnect;
    // Unset, every datagram goes out once, as tests want it. Set, the console
    // repeats its LAN ping, its offline requests and unacknowledged datagrams
    // after this long, as a real one does when a busy bridge drops them.
    std::optional<std::chrono::milliseconds> resendAfter;
};

// What came of one join.
struct ConsoleReport {
    // The advert text of the pong ("MCPE;...").
    std::string advert;
    // The names of the game packets received, in order.
    std::vector<std::string> received;
    // The hand-over, when it came.
    std::optional<std::string> transferAddress;
    std::optional<uint16_t> transferPort;
    // The message of a DisconnectPacket, when one came instead.
    std::optional<std::string> disconnectMessage;
    // Everything that differed from what a console must get: wrong bytes,
    // packets out of order, a step that timed out. Empty for a good join.
    std::vector<std::string> problems;
    // When the first OpenConnectionRequest1 left and when the TransferPacket
    // was read, for measuring how long a hand-over takes.
    std::optional<std::chrono::steady_clock::time_point> connectSentAt;
    std::optional<std::chrono::steady_clock::time_point> transferReadAt;

    bool transferred() const { return transferAddress.has_value(); }
    bool clean() const { return problems.empty(); }
};

// A Bedrock console of any protocol played over a loopback socket: it
// discovers the advert, connects over RakNet, asks for network settings (RakNet
// 11), logs in (a self-signed chain and an empty XUID, as a console that isn't
// signed in, in the envelope of its protocol), walks through the resource-pack
// steps, checks every packet it is sent against the bytes the bridge must send
// for its protocol, says it's in the world and reports where the
// TransferPacket sends it.
//
// The layouts it expects are the bridge's own packet classes; what it checks
// is that they reach a console whole, in order and in the framing of its
// protocol. Its own side is written apart from the bridge: a zlib stream of its
// own, the usual base-128 var-int of a real client.
class SimulatedConsole {
public:
    explicit SimulatedConsole(ConsoleOptions options);

    // One whole join. Never throws for what the bridge sends; every fault is
    // a line in `problems`. Leaves the connection with a disconnect.
    ConsoleReport join();

private:
    ConsoleOptions options_;
};

}  // namespace ferrylink::sim
