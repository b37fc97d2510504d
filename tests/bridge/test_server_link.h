#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "bridge/server_link.h"

namespace ferrylink::testing {

// Stands in for a running server: keeps the console lines and hands out
// buffers as a bound channel would.
class TestServerLink : public bridge::ServerLink {
public:
    void print(std::string_view line) override {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    }
    foundation::ByteBufferAllocator channelAllocator() override { return {}; }

    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

    // Builds one and makes it the current server.
    static std::shared_ptr<TestServerLink> installNew() {
        auto link = std::make_shared<TestServerLink>();
        bridge::ServerLink::install(link);
        return link;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace ferrylink::testing
