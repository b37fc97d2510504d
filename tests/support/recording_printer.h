#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "raknet/printer.h"

namespace ferrylink::testing {

// Keeps every console line and lets a test wait for one to show up.
class RecordingPrinter : public raknet::Printer {
public:
    void print(const std::string& text) override {
        {
            std::lock_guard lock(mutex_);
            lines_.push_back(text);
        }
        changed_.notify_all();
    }

    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

    size_t count(const std::string& line) const {
        std::lock_guard lock(mutex_);
        return static_cast<size_t>(std::count(lines_.begin(), lines_.end(), line));
    }

    bool contains(const std::string& line) const { return count(line) > 0; }

    // True once `line` has been printed `times` times; false when `timeout`
    // passed first. The limit only bounds a hang, it doesn't time anything.
    bool waitFor(const std::string& line, size_t times = 1,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] {
            return static_cast<size_t>(std::count(lines_.begin(), lines_.end(), line)) >= times;
        });
    }

    bool waitForPrefix(const std::string& prefix, std::chrono::milliseconds timeout = std::chrono::seconds(20)) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] {
            return std::any_of(lines_.begin(), lines_.end(),
                               [&](const std::string& line) { return line.starts_with(prefix); });
        });
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
};

}  // namespace ferrylink::testing
