#include "app/bridge_server.h"

#include "bridge/portal_hop.h"
#include "raknet/server_info.h"

namespace ferrylink::app {

namespace {

// The controller's handle on one PortalHop.
class PortalHopServer : public BridgeServer {
public:
    explicit PortalHopServer(std::shared_ptr<bridge::PortalHop> hop) : hop_(std::move(hop)) {}

    const std::string& transferHost() const override { return hop_->transferHost; }
    int64_t transferPort() const override { return hop_->transferPort; }

    void setPrinter(std::shared_ptr<raknet::Printer> printer) override { hop_->setPrinter(std::move(printer)); }

    std::optional<std::string> start(std::shared_ptr<foundation::EventLoopGroup> group,
                                     const AdvertValues& advert) override {
        auto outcome = hop_->start(std::move(group), std::make_shared<raknet::ServerInfo>(
                                                         advert.motd, advert.name, advert.protocolVersion,
                                                         advert.version, advert.currentPlayers, advert.maxPlayers,
                                                         advert.gamemode, advert.serverId));
        if (outcome.listening) {
            return std::nullopt;
        }
        return outcome.failure;
    }

    std::optional<foundation::SocketAddress> localAddress() const override { return hop_->localAddress(); }
    bool isRunning() const override { return hop_->isRunning(); }
    void stop() override { hop_->stop(); }

private:
    std::shared_ptr<bridge::PortalHop> hop_;
};

}  // namespace

BridgeFactory portalHopFactory() {
    return [](BridgeArguments arguments) -> std::shared_ptr<BridgeServer> {
        return std::make_shared<PortalHopServer>(bridge::PortalHop::make(
            std::move(arguments.transferHost), static_cast<int>(arguments.transferPort), arguments.oneTransfer,
            std::move(arguments.onCloseHandler), arguments.hostPort, arguments.resolveIp,
            std::move(arguments.hostIp)));
    };
}

}  // namespace ferrylink::app
