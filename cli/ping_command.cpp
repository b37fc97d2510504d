#include <iostream>
#include <memory>

#include "bridge/client_pe.h"
#include "cli/commands.h"
#include "foundation/event_loop.h"
#include "raknet/printer.h"

namespace ferrylink::cli {

namespace {
// The probe's own console lines are not for the user of this command.
class SilentPrinter : public raknet::Printer {
public:
    void print(const std::string&) override {}
};
}  // namespace

int pingServer(const PingOptions& options) {
    auto group = std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    auto probe = std::make_shared<bridge::ClientPe>(0);
    probe->setPrinter(std::make_shared<SilentPrinter>());
    probe->start(group);

    int status = 0;
    try {
        auto info = probe->ping(options.host, options.port).wait();
        std::cout << "motd:      " << info->motd << "\n"
                  << "name:      " << info->name << "\n"
                  << "version:   " << info->version << "\n"
                  << "protocol:  " << info->protocolVersion << "\n"
                  << "players:   " << info->currentPlayers << "/" << info->maxPlayers << "\n"
                  << "game mode: " << info->gamemode << std::endl;
    } catch (const std::exception&) {
        std::cerr << "ferrylink: no answer from " << options.host << ":" << options.port
                  << " (timed out, or the name does not resolve)" << std::endl;
        status = 1;
    }
    probe->stop();
    group->syncShutdownGracefully();
    return status;
}

}  // namespace ferrylink::cli
