#include "app/models.h"

#include <exception>

#include "app/backend_client.h"
#include "app/main_thread.h"
#include "app/system_log.h"
#include "app/user_defaults.h"

namespace ferrylink::app {

namespace {
std::shared_ptr<foundation::MultiThreadedEventLoopGroup> newGroup() {
    return std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
}
}  // namespace

AdvertValues ferrylinkAdvert() {
    return AdvertValues{
        .motd = "Ferrylink",
        .name = "Join me!",
        .protocolVersion = 560,
        .version = "1.19.50",
        .currentPlayers = 0,
        .maxPlayers = 99,
        .gamemode = "Creative",
        .serverId = 0,
    };
}

EventLoopGroupModel::EventLoopGroupModel() : group(newGroup()) {}

EventLoopGroupModel::~EventLoopGroupModel() { shutDownGroup(); }

void EventLoopGroupModel::shutDownGroup() {
    // Read without the main-queue check: the destructor may run anywhere.
    auto current = group.getUnchecked();
    try {
        current->syncShutdownGracefully();
    } catch (const std::exception& error) {
        systemLog(error.what());
    }
}

void EventLoopGroupModel::resetGroup() {
    assertMainThread();
    shutDownGroup();
    group.set(newGroup());
}

FeaturedModel::FeaturedModel(std::shared_ptr<UserDefaults> defaults, std::shared_ptr<PartneredServers> partnered)
    : defaults_(std::move(defaults)), partnered_(std::move(partnered)) {
    if (defaults_->object(key)) {
        featured.setInitial(defaults_->boolean(key));
    }
}

void FeaturedModel::toggle() {
    assertMainThread();
    bool now = !featured.get();
    featured.set(now);
    defaults_->setBool(key, now);
    if (now) {
        partnered_->fetchStatus();
    }
}

}  // namespace ferrylink::app
