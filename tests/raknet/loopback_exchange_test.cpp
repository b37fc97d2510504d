// One whole exchange over loopback, the way a console meets the bridge:
// discovery ping, handshake, a game payload up, a payload down that needs
// three fragments, and the peer's goodbye.
#include <gtest/gtest.h>

#include "harness.h"
#include "raknet/client.h"
#include "support/raknet_peer.h"

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using ferrylink::testing::RakNetPeer;
using testing::EventKind;
using testing::LoopbackServer;

TEST(LoopbackExchangeTest, PingHandshakePayloadsAndDisconnect) {
    LoopbackServer server;
    ASSERT_TRUE(server.bound());

    // Discovery, as the console's LAN scan does it.
    auto prober = std::make_shared<Client>();
    prober->printer = std::make_shared<testing::RecordingPrinter>();
    ASSERT_TRUE(prober->bind("127.0.0.1", 0, server.group));
    auto advert = prober->ping(*server.address).wait();
    EXPECT_EQ(advert->motd, "Ferrylink");
    prober->close();

    // Offline handshake and connected handshake.
    RakNetPeer console(*server.address);
    ASSERT_TRUE(console.connect(1400));
    ASSERT_TRUE(server.events->waitFor(EventKind::open));
    auto connection = server.events->of(EventKind::open)[0].connection;

    // A game payload up.
    console.sendPayload({0xFE, 0x06, 0xC1, 0x01, 0x00, 0x00, 0x02, 0x30});
    ASSERT_TRUE(server.events->waitFor(EventKind::encapsulated));
    EXPECT_EQ(server.events->payloads()[0], (std::vector<uint8_t>{0xFE, 0x06, 0xC1, 0x01, 0x00, 0x00, 0x02, 0x30}));

    // A payload down, as the bridge sends it from its own thread: 3000 bytes
    // over an MTU of 1372 leave as three fragments of one set.
    std::vector<uint8_t> chunk(3000);
    for (size_t i = 0; i < chunk.size(); ++i) {
        chunk[i] = static_cast<uint8_t>(i ^ (i >> 8));
    }
    chunk[0] = 0xFE;
    connection->sendBuffer(ByteBuffer(chunk));
    std::vector<ferrylink::testing::PeerFrame> fragments;
    while (fragments.size() < 3) {
        auto datagram = console.nextDatagram();
        ASSERT_TRUE(datagram);
        for (const auto& frame : datagram->frames) {
            if (frame.split) {
                EXPECT_EQ(datagram->frames.size(), 1u);
                fragments.push_back(frame);
            }
        }
    }
    EXPECT_EQ(fragments[0].splitId, fragments[2].splitId);
    EXPECT_EQ(fragments[0].orderIndex, fragments[2].orderIndex);
    EXPECT_EQ(fragments[0].payload.size() + fragments[1].payload.size() + fragments[2].payload.size(), 3000u);
    EXPECT_EQ(console.nextPayloadWithId(0xFE), chunk);

    // Goodbye.
    console.sendDisconnect();
    ASSERT_TRUE(server.events->waitFor(EventKind::close));
    EXPECT_EQ(server.events->of(EventKind::close)[0].reason, "client disconnect");
    EXPECT_TRUE(server.waitForConnections(0));
}

}  // namespace
}  // namespace ferrylink::raknet
