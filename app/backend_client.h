#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/backend_records.h"
#include "app/backend_session.h"
#include "app/observable.h"

namespace ferrylink::app {

class UserDefaults;

// The game version whose messages the app asks for.
inline constexpr const char* kMessagesVersion = "1.19.50";

// This install's identity for the backend: a UUID in upper case, made on
// first use and kept under "clientUUID". A stored value that is no text is
// a fatal fault.
std::string clientIdentifier(UserDefaults& defaults);

// Reports one run to the backend and forgets about it: nothing of the answer
// reaches the user or the log. An address that does not parse is a fatal
// fault, since it is made of build-time constants.
void postLog(const BackendSession& session, UserDefaults& defaults, const std::string& host,
             const std::string& port);

// The hosts that Run refuses. Fetched once per screen: a failure leaves
// `fetched` false so the next appearance tries again.
class BlacklistServers : public std::enable_shared_from_this<BlacklistServers> {
public:
    static std::shared_ptr<BlacklistServers> make(std::shared_ptr<const BackendSession> session);

    Observable<std::vector<BlacklistServer>> servers;
    // Main queue only; not published.
    bool fetched() const { return fetched_; }

    // Main queue only.
    void fetchBlacklist();
    // Plain equality with each entry, in order: no case folding, no suffix.
    bool isBlacklisted(const std::string& host) const;

private:
    explicit BlacklistServers(std::shared_ptr<const BackendSession> session) : session_(std::move(session)) {}
    std::shared_ptr<const BackendSession> session_;
    bool fetched_ = false;
};

// The backend's messages for the user.
class Messages : public std::enable_shared_from_this<Messages> {
public:
    static std::shared_ptr<Messages> make(std::shared_ptr<const BackendSession> session);

    Observable<std::vector<Message>> messages;
    bool fetched() const { return fetched_; }

    // Main queue only. `completion` runs on the main queue after a success,
    // once `messages` is set; never after a failure, nor when fetched already.
    void fetchMessages(std::function<void()> completion);

private:
    explicit Messages(std::shared_ptr<const BackendSession> session) : session_(std::move(session)) {}
    std::shared_ptr<const BackendSession> session_;
    bool fetched_ = false;
};

// The partnered servers, refreshed at most every 5 seconds counted from the
// last success. A failure shows the one placeholder row instead.
class PartneredServers : public std::enable_shared_from_this<PartneredServers> {
public:
    static constexpr int64_t refreshIntervalMillis = 5000;

    static std::shared_ptr<PartneredServers> make(std::shared_ptr<const BackendSession> session);

    Observable<std::vector<PartneredServer>> servers;
    // Milliseconds since 1970 of the last success, -1 before any; main queue.
    int64_t lastFetch() const { return lastFetch_; }

    // Main queue only. Overlapping fetches are not kept apart: the later
    // completion wins.
    void fetchStatus();

private:
    explicit PartneredServers(std::shared_ptr<const BackendSession> session) : session_(std::move(session)) {}
    std::shared_ptr<const BackendSession> session_;
    int64_t lastFetch_ = -1;
};

}  // namespace ferrylink::app
