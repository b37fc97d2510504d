#include "bridge/piped_player.h"

#include <gtest/gtest.h>

#include "bridge/packets/raw_deflate.h"
#include "bridge/sim/simulated_console.h"
#include "running_bridge.h"
#include "support/hex.h"
#include "support/raknet_peer.h"

namespace ferrylink::bridge {
namespace {

using Bytes = std::vector<uint8_t>;
using testing::bytesFromHex;
using testing::RunningBridge;

enum class Framing { raw, deflated, named };

// A console's side of one session, batch by batch, for the edges a whole join
// doesn't visit and for consoles that send what makes no sense.
class Session {
public:
    Session(const RunningBridge& bridge, uint8_t raknetVersion)
        : peer_(foundation::SocketAddress::makeResolving("127.0.0.1", bridge.port())) {
        connected = peer_.connect(1400, raknetVersion);
    }
    ~Session() { peer_.sendDisconnect(); }

    // One batch of the given packets, each behind its length.
    void send(const std::vector<Bytes>& packets, Framing framing) {
        Bytes entries;
        for (const auto& packet : packets) {
            entries.push_back(static_cast<uint8_t>(packet.size()));  // all short here
            entries.insert(entries.end(), packet.begin(), packet.end());
        }
        sendBody(framing == Framing::raw ? entries : deflateRaw(entries).value(), framing == Framing::named);
    }
    void sendBody(Bytes body, bool named = false) {
        Bytes payload{0xFE};
        if (named) {
            payload.push_back(0x00);
        }
        payload.insert(payload.end(), body.begin(), body.end());
        peer_.sendPayload(payload);
    }

    // The content of the next batch in the framing the bridge should use.
    std::string receive(Framing framing) {
        auto payload = peer_.nextPayloadWithId(0xFE);
        if (!payload) {
            return "(nothing)";
        }
        Bytes body(payload->begin() + 1, payload->end());
        if (framing == Framing::named) {
            if (body.empty() || body[0] != 0x00) {
                return "(no algorithm byte)";
            }
            body.erase(body.begin());
        }
        auto content = framing == Framing::raw ? std::optional<Bytes>(body) : inflateRaw(body, 1 << 20);
        return content ? testing::hexOf(*content) : "(not deflated)";
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(*peer_.localAddress().port()); }

    bool connected = false;

private:
    testing::RakNetPeer peer_;
};

Bytes requestNetworkSettings(int32_t protocol) {
    Bytes request = bytesFromHex("C1 01");
    for (int shift = 24; shift >= 0; shift -= 8) {
        request.push_back(static_cast<uint8_t>(protocol >> shift));
    }
    return request;
}

// A login in a chain of the given text, with nothing behind it.
Bytes loginWithChain(const std::string& chain, std::string_view header = "01") {
    Bytes login = bytesFromHex(header);
    for (uint8_t byte : bytesFromHex("00 00 02 30")) {
        login.push_back(byte);
    }
    login.push_back(static_cast<uint8_t>(4 + chain.size()));
    login.push_back(static_cast<uint8_t>(chain.size()));
    login.insert(login.end(), {0, 0, 0});
    login.insert(login.end(), chain.begin(), chain.end());
    return login;
}

constexpr const char* settingsEntry = "8D 00 8F 81 00 01 00 00 00 00 00 00 00 00 00";

TEST(PipedPlayerTest, SettingsSwitchTheFramingOfTheClientsProtocol) {
    RunningBridge bridge;
    Session older(bridge, 11);
    Session newer(bridge, 11);
    ASSERT_TRUE(older.connected && newer.connected);
    older.send({requestNetworkSettings(648)}, Framing::raw);
    newer.send({requestNetworkSettings(649)}, Framing::raw);
    EXPECT_EQ(older.receive(Framing::raw), settingsEntry);
    EXPECT_EQ(newer.receive(Framing::raw), settingsEntry);
    // A second request is answered in the framing the first one set up.
    older.send({requestNetworkSettings(648)}, Framing::deflated);
    newer.send({requestNetworkSettings(649)}, Framing::named);
    EXPECT_EQ(older.receive(Framing::deflated), settingsEntry);
    EXPECT_EQ(newer.receive(Framing::named), settingsEntry);
    // Before v649 a small batch may come raw even now; from v649 it says so.
    older.send({bytesFromHex("09 00")}, Framing::raw);
    newer.sendBody(bytesFromHex("FF 02 09 00"));
    ASSERT_TRUE(bridge.printer->waitFor("Unknown packet 9", 2));
    EXPECT_EQ(bridge.printer->count("RequestNetworkSettingsPacket"), 4u);
}

TEST(PipedPlayerTest, UnknownPacketIsOnlyLoggedAndPacketsOfABatchAreHandledInOrder) {
    RunningBridge bridge;
    Session session(bridge, 10);
    ASSERT_TRUE(session.connected);
    session.send({bytesFromHex("09 00"), bytesFromHex("9C 01 00 02 02 03 61 62 63")}, Framing::deflated);
    ASSERT_TRUE(bridge.printer->waitFor("Type: MALFORMED_PACKET Serv: WARNING Id: 1 Content: abc"));
    auto lines = bridge.printer->lines();
    auto unknown = std::find(lines.begin(), lines.end(), "Unknown packet 9");
    auto warning = std::find(lines.begin(), lines.end(), "packetId: 156");
    EXPECT_LT(unknown, warning);
}

TEST(PipedPlayerTest, LoginWithoutANameIsToldToDisconnect) {
    RunningBridge bridge;
    Session session(bridge, 10);
    ASSERT_TRUE(session.connected);
    // Header 0x101: only the low eight bits count for a console this old, so
    // this is a login. The chain is empty, so no name.
    session.send({loginWithChain(R"({"chain":[]})", "81 02")}, Framing::deflated);

    auto reply = session.receive(Framing::deflated);
    EXPECT_TRUE(reply.starts_with("B2 00 85 00 00 AD 00")) << reply;
    EXPECT_TRUE(bridge.printer->waitFor("error in LoginPacket decoding!"));
}

// Each of these consoles sends something no game client sends; each is
// dropped with one line, and a console joining meanwhile is handed over.
TEST(PipedPlayerTest, APeerThatMakesNoSenseIsDroppedAndTheOthersAreServed) {
    RunningBridge bridge;
    struct Fault {
        uint8_t raknetVersion;
        std::function<void(Session&)> send;
        std::string reason;
    };
    const Fault faults[] = {
        {11, [](Session& s) { s.send({requestNetworkSettings(649)}, Framing::raw); s.sendBody(bytesFromHex("7E 01 02")); },
         "batch names an unknown compression 7E"},
        {10, [](Session& s) { s.sendBody(bytesFromHex("00")); }, "packet without a header"},
        {11, [](Session& s) { s.send({requestNetworkSettings(560)}, Framing::deflated); }, "batch entry runs past the end"},
        {10, [](Session& s) { s.send({bytesFromHex("08 03 00 00")}, Framing::deflated); },
         "resource packs answered before the login"},
        {10, [](Session& s) { s.send({loginWithChain(R"({"chain":[1]})")}, Framing::deflated); },
         "login chain holds something else than tokens"},
    };
    std::vector<std::unique_ptr<Session>> sessions;
    for (const auto& fault : faults) {
        sessions.push_back(std::make_unique<Session>(bridge, fault.raknetVersion));
        ASSERT_TRUE(sessions.back()->connected);
        fault.send(*sessions.back());
    }
    sim::ConsoleOptions options;
    options.port = bridge.port();
    auto report = sim::SimulatedConsole(options).join();
    EXPECT_TRUE(report.transferred() && report.clean());
    for (size_t i = 0; i < sessions.size(); ++i) {
        EXPECT_TRUE(bridge.printer->waitFor("Dropped " + sessions[i]->address() + ": " + faults[i].reason));
        EXPECT_TRUE(bridge.printer->waitFor("Player disconnected due to \"" + faults[i].reason + "\"!"));
    }
}

}  // namespace
}  // namespace ferrylink::bridge
