#include <exception>
#include <iostream>
#include <memory>

#include "bridge/console_lines.h"
#include "bridge/portal_hop.h"
#include "cli/commands.h"
#include "cli/termination_signals.h"
#include "cli/world_data.h"
#include "foundation/dispatch_queue.h"
#include "foundation/event_loop.h"
#include "raknet/server_info.h"

namespace ferrylink::cli {

using foundation::DispatchQueue;

int runBridge(const RunOptions& options) {
    try {
        checkWorldData();
    } catch (const std::exception& error) {
        std::cerr << "ferrylink: " << error.what() << std::endl;
        return 1;
    }
    DispatchQueue& mainQueue = DispatchQueue::main();
    // Ctrl-C and SIGTERM ask the bridge to stop, so consoles still joined are
    // told "Server shutdown!"; the run ends when the bridge says it closed.
    // Touched on the main queue only.
    auto running = std::make_shared<std::shared_ptr<bridge::PortalHop>>();
    watchTerminationSignals([&mainQueue, running](int) {
        mainQueue.async([running] {
            if (*running && (*running)->isRunning()) {
                (*running)->stop();
            }
        });
    });

    auto group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    // The advert is the app's, so a console shows the same entry either way.
    auto advert = std::make_shared<raknet::ServerInfo>("Ferrylink", "Join me!", 560, "1.19.50", 0, 99, "Creative", 0);
    auto server = bridge::PortalHop::make(
        options.host, options.port, options.oneTransfer, [&mainQueue] { mainQueue.async([&mainQueue] { mainQueue.stop(); }); },
        options.listenPort, /*resolveIp=*/true, options.listenHost);
    if (options.quiet) {
        server->setPrinter(std::make_shared<bridge::QuietPrinter>(server->printer()));
    }
    auto outcome = server->start(group, advert);
    if (outcome.listening) {
        mainQueue.async([running, server] { *running = server; });
        mainQueue.run();
    }
    group->syncShutdownGracefully();
    // A run that bound nothing, or whose socket closed under it, failed.
    if (auto failure = server->failure()) {
        std::cerr << "ferrylink: " << *failure << std::endl;
        return 1;
    }
    return 0;
}

}  // namespace ferrylink::cli
