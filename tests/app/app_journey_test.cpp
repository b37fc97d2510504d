// One whole session of the app core, from start-up to the background, with
// the real backend and the real bridge on loopback and a simulated console
// that joins the advertised world.

#include <gtest/gtest.h>

#include "app/app_core.h"
#include "app_test_support.h"
#include "backend/backend_server.h"
#include "backend/store.h"
#include "backend/test_certificate.h"
#include "bridge/sim/simulated_console.h"

namespace ferrylink::app {
namespace {

using ferrylink::testing::TestCertificate;
using testing::drainMain;
using testing::numericNameCheck;
using testing::onMain;
using testing::runMainUntil;
using testing::ScratchDirectory;

TEST(AppJourney, StartUpRunTransferBackgroundAndANewGroup) {
    ScratchDirectory scratch;
    backend::Store backendStore(":memory:");
    backendStore.addMessage("1.19.50", "Welcome aboard");
    backend::PartneredServer partner;
    partner.ip = "127.0.0.1";
    partner.port = "19150";
    partner.title = "Partner";
    partner.subtitle = "\xC2\xA7" "aGreen";
    backendStore.addPartner(partner);
    backend::BackendServerThread backend(backendStore, TestCertificate::shared().serverCertificate(),
                                         TestCertificate::shared().serverKey());

    AppConfig config;
    // By name: a target that contains the backend's host is refused, and the
    // console is sent on to 127.0.0.1.
    config.backendHost = "localhost";
    config.backendPort = backend.port();
    config.backendCaFile = TestCertificate::shared().caCertificate();
    config.dataDirectory = scratch.path();
    config.bridgeHost = "127.0.0.1";
    config.bridgePort = 0;
    config.nameCheck = numericNameCheck;
    config.localNetworkAddresses = std::vector<std::string>{};
    AppCore app(config);

    // Start-up in the order the window shows its screens.
    std::shared_ptr<ConectionForm> form;
    onMain([&] {
        app.launch();
        app.windowContentAppeared();
        app.appViewAppeared();
        app.scenePhaseChanged(ScenePhase::active);
        app.connectViewAppeared();
        form = app.makeConectionForm();
        app.conectionFormAppeared();
    });
    ASSERT_TRUE(runMainUntil([&] { return app.messages().fetched(); }));
    ASSERT_TRUE(runMainUntil([&] { return app.partnered().lastFetch() >= 0; }));
    drainMain();

    std::shared_ptr<foundation::MultiThreadedEventLoopGroup> firstGroup;
    uint64_t favouriteId = 0;
    onMain([&] {
        ASSERT_TRUE(app.pendingMessage().get());
        EXPECT_EQ(app.pendingMessage().get()->message.message, "Welcome aboard");
        ASSERT_EQ(app.partnered().servers.get().size(), 1u);
        EXPECT_EQ(app.partnered().servers.get()[0].title, "Partner");

        // The favourite is the target the console will be sent on to.
        favouriteId = app.addToFavorites("127.0.0.1", "19133").id;
        ASSERT_TRUE(app.pickFavourite(favouriteId, form->info()));
        firstGroup = app.groupModel().group.get();
        form->runOrStop();
        ASSERT_TRUE(app.runningServer().server.get());
        EXPECT_EQ(app.serverState().get(), "Server is running and will transfer to 127.0.0.1:19133!");
    });

    int bridgePort = 0;
    onMain([&] { bridgePort = *app.runningServer().server.get()->localAddress()->port(); });
    ferrylink::testing::ConsoleOptions console;
    console.host = "127.0.0.1";
    console.port = bridgePort;
    auto report = ferrylink::testing::SimulatedConsole(console).join();
    EXPECT_TRUE(report.clean()) << ::testing::PrintToString(report.problems);
    ASSERT_TRUE(report.transferred());
    EXPECT_EQ(*report.transferAddress, "127.0.0.1");
    EXPECT_EQ(*report.transferPort, 19133);
    EXPECT_NE(report.advert.find("MCPE;Ferrylink;560;1.19.50;0;99;"), std::string::npos);

    // Leaving the foreground ends the run; coming back brings a fresh group.
    onMain([&] {
        app.scenePhaseChanged(ScenePhase::inactive);
        app.scenePhaseChanged(ScenePhase::background);
        EXPECT_EQ(app.runningServer().server.get(), nullptr);
    });
    ASSERT_TRUE(runMainUntil([&] { return app.serverState().getUnchecked() == kServerNotRunning; }));
    onMain([&] {
        app.scenePhaseChanged(ScenePhase::active);
        EXPECT_NE(app.groupModel().group.get(), firstGroup);
        EXPECT_EQ(app.favourites().get().size(), 1u);
    });
}

}  // namespace
}  // namespace ferrylink::app
