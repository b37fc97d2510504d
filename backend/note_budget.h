#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace ferrylink::backend {

// How many notes of runs the backend takes: so many a minute from one
// address and so many from all, so that one client can't fill the disk.
// Counted in windows of a minute; the table of addresses starts afresh with
// each window, so it never holds more than a minute's callers. Any thread.
class NoteBudget {
public:
    struct Limits {
        int perAddressPerMinute = 20;
        int totalPerMinute = 1200;
    };

    explicit NoteBudget(Limits limits) : limits_(limits) {}

    // Takes one note's worth for `address` at `nowMs`. When there is none
    // left, nothing is taken and the answer is the seconds until the next
    // window.
    std::optional<int> take(const std::string& address, std::int64_t nowMs);

private:
    Limits limits_;
    std::mutex mutex_;
    std::int64_t window_ = -1;
    int total_ = 0;
    std::map<std::string, int> perAddress_;
};

}  // namespace ferrylink::backend
