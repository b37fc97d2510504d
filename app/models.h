#pragma once

#include <memory>
#include <string>

#include "app/bridge_server.h"
#include "app/observable.h"
#include "foundation/event_loop.h"

namespace ferrylink::app {

class PartneredServers;
class UserDefaults;

// The form's two fields as typed, uncleaned. Picking a favourite or a
// partnered row writes here.
struct FormServerInfo {
    Observable<std::string> ip{std::string()};
    Observable<std::string> port{std::string("19132")};
};

// The running bridge. Its presence is what the whole app means by "running".
struct RunningServerModel {
    Observable<std::shared_ptr<BridgeServer>> server;
};

// The event-loop group the bridge runs on: one thread, replaced whenever the
// app comes to the foreground.
class EventLoopGroupModel {
public:
    EventLoopGroupModel();
    // Shuts the group down as resetGroup does.
    ~EventLoopGroupModel();
    EventLoopGroupModel(const EventLoopGroupModel&) = delete;
    EventLoopGroupModel& operator=(const EventLoopGroupModel&) = delete;

    Observable<std::shared_ptr<foundation::MultiThreadedEventLoopGroup>> group;

    // Shuts the current group down, blocking until it has ended (an error is
    // logged and passed over), then puts a new group of one thread in its
    // place. Main queue only.
    void resetGroup();

private:
    void shutDownGroup();
};

// Whether the partnered list is shown (and kept fresh). Kept under
// "featuredHide", where true means shown in spite of the key's name.
class FeaturedModel {
public:
    static constexpr const char* key = "featuredHide";

    // Takes the stored value if there is one; writes nothing.
    FeaturedModel(std::shared_ptr<UserDefaults> defaults, std::shared_ptr<PartneredServers> partnered);

    Observable<bool> featured{true};

    // The switch: flips `featured`, stores it, and fetches the list when it
    // is now shown (within the fetch's own 5-second rule). Main queue only.
    void toggle();

private:
    std::shared_ptr<UserDefaults> defaults_;
    std::shared_ptr<PartneredServers> partnered_;
};

}  // namespace ferrylink::app
