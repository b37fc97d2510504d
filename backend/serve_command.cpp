#include "backend/serve_command.h"

#include <pthread.h>
#include <signal.h>

#include <cstdint>
#include <exception>
#include <mutex>
#include <string_view>
#include <thread>

#include "backend/backend_server.h"
#include "backend/records.h"
#include "backend/store.h"

namespace ferrylink::backend {
namespace {

constexpr std::string_view kProgram = "ferrylink-backend";

// Blocks SIGINT and SIGTERM for as long as it lives, so that only the waiter
// thread of serve() sees them, through sigwait.
class StopSignals {
public:
    StopSignals() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        sigaddset(&set_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set_, &previous_);
    }
    ~StopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    int wait() const {
        int signal = 0;
        sigwait(&set_, &signal);
        return signal;
    }

private:
    sigset_t set_;
    sigset_t previous_;
};

}  // namespace

int serve(const ServeOptions& options, std::ostream& out, std::ostream& err) {
    std::mutex outputMutex;
    const auto writeLine = [&](std::ostream& stream, std::string_view line) {
        std::lock_guard lock(outputMutex);
        stream << line << std::endl;
    };

    try {
        Store store(options.database);
        BackendServer server(store, options.certificate, options.privateKey);
        server.setLogSink([&](std::string_view line) {
            std::string stamped = formatUtcTimestamp(currentTimeMilliseconds()) + " " + std::string(line);
            writeLine(line.starts_with("error:") ? err : out, stamped);
        });
        const int port = server.bind(options.listenAddress, options.port);
        const std::string host = options.listenAddress.find(':') != std::string::npos
                                     ? "[" + options.listenAddress + "]"
                                     : options.listenAddress;

        // The mask is set before the server's worker threads exist, so they
        // inherit it and the signals reach only the waiter.
        StopSignals signals;
        bool serverEnded = false;
        bool signalled = false;
        std::mutex endedMutex;
        std::thread waiter([&] {
            const int signal = signals.wait();
            std::lock_guard lock(endedMutex);
            signalled = true;
            if (!serverEnded) {
                writeLine(out, std::string(kProgram) + ": stopping on " + (signal == SIGINT ? "SIGINT" : "SIGTERM"));
                server.stop();
            }
        });

        writeLine(out, std::string(kProgram) + ": serving https://" + host + ":" + std::to_string(port) +
                           " with database " + options.database.string());
        server.run();
        {
            // run() can end without a signal; then wake the waiter so it can
            // be joined.
            std::lock_guard lock(endedMutex);
            serverEnded = true;
            if (!signalled) {
                pthread_kill(waiter.native_handle(), SIGTERM);
            }
        }
        waiter.join();
        writeLine(out, std::string(kProgram) + ": stopped");
        return 0;
    } catch (const std::exception& error) {
        writeLine(err, std::string(kProgram) + ": " + error.what());
        return 1;
    }
}

}  // namespace ferrylink::backend
