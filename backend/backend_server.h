#pragma once

// The HTTPS server of the four endpoints the app calls:
//
//   POST /postLog             a note of one run; stored with its headers
//   GET  /getStatus           the partnered servers, as a JSON array
//   GET  /blacklist/all       the blocked hosts, as a JSON array
//   GET  /message/by-version  the messages for ?version=..., as a JSON array
//
// Every answer is JSON. A request the server can't take gets a 4xx with
// {"error": "..."} and the server carries on.

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "backend/note_budget.h"
#include "backend/store.h"

namespace httplib {
class SSLServer;
}

namespace ferrylink::http {
class RouteTable;
template <typename Base>
class LimitedServer;
}

namespace ferrylink::backend {

class ServerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A line for the operator's log: one per answered request, and one per
// request that failed inside the server.
using LogSink = std::function<void(std::string_view line)>;

class BackendServer {
public:
    static constexpr std::size_t kMaxBodyBytes = 64 * 1024;

    // Loads the PEM certificate chain and private key; throws ServerError
    // when either can't be used. The store must outlive the server.
    BackendServer(Store& store, const std::filesystem::path& certificate,
                  const std::filesystem::path& privateKey, NoteBudget::Limits noteLimits = {});
    ~BackendServer();
    BackendServer(const BackendServer&) = delete;
    BackendServer& operator=(const BackendServer&) = delete;

    // Before run(). Lines come from the server's worker threads.
    void setLogSink(LogSink sink);

    // Opens the listening socket; port 0 lets the kernel choose. Returns the
    // port bound. Throws ServerError.
    int bind(const std::string& address, int port);

    // Serves on the calling thread until stop(). Once only.
    void run();

    // Ends run() after the requests in flight are answered. From any thread,
    // any number of times, also before run() has begun (run() then returns at
    // once).
    void stop();

private:
    void installRoutes();

    Store& store_;
    std::unique_ptr<http::RouteTable> routes_;
    std::unique_ptr<NoteBudget> noteBudget_;
    std::unique_ptr<http::LimitedServer<httplib::SSLServer>> server_;
    LogSink logSink_;

    std::mutex stateMutex_;
    bool stopRequested_ = false;
    bool running_ = false;
};

// A server on a thread of its own, for tests and for embedding: bound on
// construction, stopped and joined on destruction.
class BackendServerThread {
public:
    BackendServerThread(Store& store, const std::filesystem::path& certificate,
                        const std::filesystem::path& privateKey, const std::string& address = "127.0.0.1",
                        int port = 0, LogSink logSink = nullptr, NoteBudget::Limits noteLimits = {});
    ~BackendServerThread();
    BackendServerThread(const BackendServerThread&) = delete;
    BackendServerThread& operator=(const BackendServerThread&) = delete;

    int port() const { return port_; }

    // "https://127.0.0.1:PORT", with the address given at construction.
    std::string baseUrl() const;

private:
    BackendServer server_;
    std::string address_;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace ferrylink::backend
