#pragma once

#include <functional>

namespace ferrylink::cli {

// Blocks SIGINT and SIGTERM in the calling thread and in every thread it
// starts from now on, and calls `onSignal` on a watcher thread of its own
// each time one arrives. Call it before any other thread is started.
void watchTerminationSignals(std::function<void(int signal)> onSignal);

}  // namespace ferrylink::cli
