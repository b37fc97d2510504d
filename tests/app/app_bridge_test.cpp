// The app core driving the real bridge over loopback: Run, the advert a
// console would see, and Stop.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "app/app_core.h"
#include "app_test_support.h"
#include "support/hex.h"

namespace ferrylink::app {
namespace {

using testing::numericNameCheck;
using testing::onMain;
using testing::runMainUntil;
using testing::ScratchDirectory;

// Asks 127.0.0.1:port for its advert as a console's LAN scan does, and gives
// the text of the answer (empty without one within the patience).
std::string advertOf(uint16_t port) {
    int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto ping = ferrylink::testing::bytesFromHex(
        "01 00 00 00 00 00 00 00 2a 00 ff ff 00 fe fe fe fe fd fd fd fd 12 34 56 78 00 00 00 00 00 00 00 07");
    ::sendto(socket, ping.data(), ping.size(), 0, reinterpret_cast<sockaddr*>(&server), sizeof server);
    pollfd ready{socket, POLLIN, 0};
    std::string answer;
    if (::poll(&ready, 1, static_cast<int>(std::chrono::milliseconds(testing::kPatience).count())) == 1) {
        char buffer[1500];
        ssize_t length = ::recv(socket, buffer, sizeof buffer, 0);
        if (length > 0) {
            answer.assign(buffer, static_cast<size_t>(length));
        }
    }
    ::close(socket);
    return answer;
}

class AppWithBridge : public ::testing::Test {
protected:
    AppWithBridge() {
        AppConfig config;
        config.backendHost = "127.0.0.1";
        config.backendPort = 9;  // nothing answers; the run report is dropped
        config.dataDirectory = scratch_.path();
        config.bridgeHost = "127.0.0.1";
        config.bridgePort = 0;
        config.nameCheck = numericNameCheck;
        config.localNetworkAddresses = std::vector<std::string>{};
        app_ = std::make_unique<AppCore>(config);
        onMain([&] {
            app_->launch();
            app_->scenePhaseChanged(ScenePhase::active);
            form_ = app_->makeConectionForm();
        });
    }

    // Presses Run with a target and gives the port the bridge listens on.
    uint16_t run(const std::string& host) {
        uint16_t port = 0;
        onMain([&] {
            form_->info().ip.set(host);
            form_->info().port.set("19132");
            form_->runOrStop();
            const auto& server = app_->runningServer().server.get();
            ASSERT_TRUE(server);
            ASSERT_TRUE(server->localAddress());
            port = static_cast<uint16_t>(server->localAddress()->port().value_or(0));
        });
        return port;
    }

    ScratchDirectory scratch_;
    std::unique_ptr<AppCore> app_;
    std::shared_ptr<ConectionForm> form_;
};

// The background's end of a run is the core's and the page's to show; here
// the run answers a console's scan with the app's advert, and Stop closes it.
TEST_F(AppWithBridge, RunAdvertisesTheAppAndStopCloses) {
    const std::string advert = advertOf(run("127.0.0.2"));
    EXPECT_NE(advert.find("MCPE;Ferrylink;560;1.19.50;0;99;"), std::string::npos) << advert;
    EXPECT_NE(advert.find(";Join me!;Creative"), std::string::npos) << advert;
    onMain([&] {
        EXPECT_EQ(app_->serverState().get(), "Server is running and will transfer to 127.0.0.2:19132!");
        form_->runOrStop();
    });
    ASSERT_TRUE(runMainUntil([&] { return app_->serverState().getUnchecked() == kServerNotRunning; }));
}

}  // namespace
}  // namespace ferrylink::app
