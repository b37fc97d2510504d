#include "app/backend_client.h"

#include <array>
#include <cstdio>

#include "app/main_thread.h"
#include "app/system_log.h"
#include "app/user_defaults.h"
#include "foundation/clock.h"
#include "foundation/dispatch_queue.h"
#include "foundation/fatal.h"
#include "foundation/random.h"

namespace ferrylink::app {

namespace {

constexpr const char* clientUuidKey = "clientUUID";

void logFetchFailure(const HttpResponse& response) {
    systemLog("Fetch failed: " + response.error.value_or("Unknown error"));
}

std::string newUuid() {
    std::array<uint8_t, 16> bytes{};
    for (size_t i = 0; i < bytes.size(); i += 4) {
        uint32_t value = foundation::random32();
        for (size_t j = 0; j < 4; ++j) {
            bytes[i + j] = static_cast<uint8_t>(value >> (8 * j));
        }
    }
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    char text[37];
    std::snprintf(text, sizeof text,
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0], bytes[1],
                  bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9], bytes[10],
                  bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

// What the answer to a run report would be taken as. Nobody looks: the error
// is made and dropped, as the report is fire-and-forget.
struct DroppedError {
    const char* domain;
    int code;
};

std::optional<DroppedError> readPostLogAnswer(const HttpResponse& response) {
    if (response.error) {
        return std::nullopt;
    }
    if (!response.body) {
        return DroppedError{"dataNilError", -100001};
    }
    auto root = nlohmann::json::parse(*response.body, nullptr, /*allow_exceptions=*/false);
    if (!root.is_object()) {
        return DroppedError{"invalidJSONTypeError", -100009};
    }
    return std::nullopt;
}

}  // namespace

std::string clientIdentifier(UserDefaults& defaults) {
    if (auto stored = defaults.object(clientUuidKey)) {
        if (auto* text = std::get_if<std::string>(&*stored)) {
            return *text;
        }
        foundation::fatalFault("clientUUID holds a value that is no text");
    }
    std::string identifier = newUuid();
    defaults.setString(clientUuidKey, identifier);
    return identifier;
}

void postLog(const BackendSession& session, UserDefaults& defaults, const std::string& host,
             const std::string& port) {
    auto address = BackendSession::parseAddress(session.baseAddress() + "/postLog");
    if (!address) {
        foundation::fatalFault("Invalid postLog URL");
    }
    HttpRequest request;
    request.method = "POST";
    request.address = *address;
    request.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
    nlohmann::json body = {
        {"serverIp", host},
        {"serverPort", port},
        {"clientIp", clientIdentifier(defaults)},
    };
    try {
        request.body = body.dump(2);
    } catch (const nlohmann::json::exception&) {
        // Text that is not UTF-8 can't be written; the report goes without a body.
    }
    session.send(std::move(request), [](const HttpResponse& response) { (void)readPostLogAnswer(response); });
}

std::shared_ptr<BlacklistServers> BlacklistServers::make(std::shared_ptr<const BackendSession> session) {
    return std::shared_ptr<BlacklistServers>(new BlacklistServers(std::move(session)));
}

void BlacklistServers::fetchBlacklist() {
    assertMainThread();
    if (fetched_) {
        return;
    }
    auto address = BackendSession::parseAddress(session_->baseAddress() + "/blacklist/all");
    if (!address) {
        return;
    }
    session_->send(HttpRequest::get(*address), [weakSelf = weak_from_this()](const HttpResponse& response) {
        if (response.body) {
            if (auto decoded = decodeSkippingBadElements<BlacklistServer>(*response.body, decodeBlacklistServer)) {
                foundation::DispatchQueue::main().async([weakSelf, list = std::move(*decoded)]() mutable {
                    if (auto self = weakSelf.lock()) {
                        self->servers.set(std::move(list));
                        self->fetched_ = true;
                    }
                });
                return;
            }
        }
        logFetchFailure(response);
    });
}

bool BlacklistServers::isBlacklisted(const std::string& host) const {
    for (const auto& server : servers.get()) {
        if (server.ip == host) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<Messages> Messages::make(std::shared_ptr<const BackendSession> session) {
    return std::shared_ptr<Messages>(new Messages(std::move(session)));
}

void Messages::fetchMessages(std::function<void()> completion) {
    assertMainThread();
    if (fetched_) {
        return;
    }
    auto address =
        BackendSession::parseAddress(session_->baseAddress() + "/message/by-version?version=" + kMessagesVersion);
    if (!address) {
        systemLog("Invalid saveBookRating URL");
        return;
    }
    session_->send(HttpRequest::get(*address), [weakSelf = weak_from_this(), completion = std::move(completion)](
                                              const HttpResponse& response) mutable {
        if (response.body) {
            if (auto decoded = decodeSkippingBadElements<Message>(*response.body, decodeMessage)) {
                foundation::DispatchQueue::main().async(
                    [weakSelf, list = std::move(*decoded), completion = std::move(completion)]() mutable {
                        if (auto self = weakSelf.lock()) {
                            self->messages.set(std::move(list));
                            self->fetched_ = true;
                            if (completion) {
                                completion();
                            }
                        }
                    });
                return;
            }
        }
        logFetchFailure(response);
    });
}

std::shared_ptr<PartneredServers> PartneredServers::make(std::shared_ptr<const BackendSession> session) {
    return std::shared_ptr<PartneredServers>(new PartneredServers(std::move(session)));
}

void PartneredServers::fetchStatus() {
    assertMainThread();
    if (lastFetch_ + refreshIntervalMillis >= foundation::Clock::currentTimeMillis()) {
        return;
    }
    auto showPlaceholder = [weakSelf = weak_from_this()] {
        foundation::DispatchQueue::main().async([weakSelf] {
            if (auto self = weakSelf.lock()) {
                self->servers.set({partneredPlaceholder()});
            }
        });
    };
    auto address = BackendSession::parseAddress(session_->baseAddress() + "/getStatus");
    if (!address) {
        showPlaceholder();
        return;
    }
    session_->send(HttpRequest::get(*address), [weakSelf = weak_from_this(), showPlaceholder](const HttpResponse& response) {
        if (response.body) {
            if (auto decoded = decodeSkippingBadElements<PartneredServer>(*response.body, decodePartneredServer)) {
                foundation::DispatchQueue::main().async([weakSelf, list = std::move(*decoded)]() mutable {
                    if (auto self = weakSelf.lock()) {
                        self->servers.set(std::move(list));
                        self->lastFetch_ = foundation::Clock::currentTimeMillis();
                    }
                });
                return;
            }
        }
        logFetchFailure(response);
        showPlaceholder();
    });
}

}  // namespace ferrylink::app
