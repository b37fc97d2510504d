#pragma once

#include <filesystem>
#include <ostream>
#include <string>

namespace ferrylink::backend {

struct ServeOptions {
    std::filesystem::path certificate;
    std::filesystem::path privateKey;
    std::filesystem::path database;
    std::string listenAddress = "127.0.0.1";
    int port = 8443;
};

// Opens the store, binds and serves until SIGINT or SIGTERM, writing one
// line per request to `out` and failures to `err`. Returns the exit status:
// 0 after a signal, 1 when the store, the certificate or the socket can't be
// had. Blocks those two signals on the calling thread for its duration, so
// call it before other threads are started.
int serve(const ServeOptions& options, std::ostream& out, std::ostream& err);

}  // namespace ferrylink::backend
