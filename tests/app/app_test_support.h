#pragma once

// Helpers shared by the app's suites: driving the main queue, a scratch
// folder, the configuration of an app under test, and collecting the app's
// system-log lines.

#include <gtest/gtest.h>
#include <netdb.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "app/app_config.h"
#include "app/system_log.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app::testing {

inline constexpr std::chrono::seconds kPatience{30};

// Answers like the system resolver for numeric hosts, and never asks DNS.
inline bool numericNameCheck(const std::string& host, const std::string& port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* results = nullptr;
    if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &results) != 0) {
        return false;
    }
    ::freeaddrinfo(results);
    return true;
}

// Runs `work` as one block of the main queue and waits for it.
inline void onMain(const std::function<void()>& work) {
    bool done = false;
    foundation::DispatchQueue::main().async([&] {
        work();
        done = true;
    });
    ASSERT_TRUE(foundation::DispatchQueue::main().runUntil([&] { return done; }, kPatience));
}

// Runs the main queue until `condition` holds. The condition is asked with
// the queue's lock held: it may read anything but must not queue work.
inline bool runMainUntil(const std::function<bool()>& condition) {
    return foundation::DispatchQueue::main().runUntil(condition, kPatience);
}

// Runs what is queued on the main queue now, and what that queues in turn.
inline void drainMain() {
    bool marker = false;
    foundation::DispatchQueue::main().async([&] { marker = true; });
    foundation::DispatchQueue::main().runUntil([&] { return marker; }, kPatience);
}

class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-app-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a scratch directory");
        }
        path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// An app that keeps its data in `dataDirectory`, checks names without a
// resolver, probes no local address, and whose backend on 127.0.0.2 (not a
// host the tests run to: Run refuses the backend's own) refuses every request.
inline AppConfig testConfig(const std::filesystem::path& dataDirectory) {
    AppConfig config;
    config.backendHost = "127.0.0.2";
    config.backendPort = 9;
    config.dataDirectory = dataDirectory;
    config.bridgeHost = "127.0.0.1";
    config.bridgePort = 0;
    config.nameCheck = numericNameCheck;
    config.localNetworkAddresses = std::vector<std::string>{};
    return config;
}

// Collects system-log lines from any thread while it lives.
class LogCollector {
public:
    LogCollector() {
        setSystemLogTap([this](std::string_view line) {
            std::lock_guard lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~LogCollector() { setSystemLogTap({}); }
    LogCollector(const LogCollector&) = delete;
    LogCollector& operator=(const LogCollector&) = delete;

    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace ferrylink::app::testing
