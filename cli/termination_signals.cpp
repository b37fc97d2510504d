#include "cli/termination_signals.h"

#include <pthread.h>
#include <signal.h>

#include <thread>

namespace ferrylink::cli {

void watchTerminationSignals(std::function<void(int signal)> onSignal) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // The watcher lives as long as the process: it is parked in sigwait.
    std::thread([signals, onSignal = std::move(onSignal)] {
        while (true) {
            int received = 0;
            if (sigwait(&signals, &received) == 0) {
                onSignal(received);
            }
        }
    }).detach();
}

}  // namespace ferrylink::cli
