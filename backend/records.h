#pragma once

// The records the backend keeps, and the JSON the app decodes from them.
//
// The wire shapes are exactly what the app's decoder asks for and nothing
// more: a partnered server has no id on the wire, a blocked host is just its
// `ip`. The operator's listings (`--json`) add the store's ids beside them.

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

namespace ferrylink::backend {

// Objects keep their members in the order written, so listings read in the
// order of the tables below rather than alphabetically.
using Json = nlohmann::ordered_json;

// Every member has an initialiser, so a designated initialiser may leave any
// of them out.

// One row of `/getStatus`. Every field but `status` is text on the wire,
// `port`, `players` and `maxPlayers` included: the app drops a row whose
// port is a JSON number.
struct PartneredServer {
    std::int64_t id = 0;
    bool status = true;
    std::string ip{};
    std::string port = "19132";
    std::string title{};
    std::string subtitle{};
    std::string players = "0";
    std::string maxPlayers = "0";
};

// One entry of `/blacklist/all`. The app compares `ip` with its lower-cased
// host for plain equality.
struct BlacklistServer {
    std::int64_t id = 0;
    std::string ip{};
    std::int64_t addedAtMs = 0;
};

// One element of `/message/by-version`.
struct Message {
    std::int64_t id = 0;
    std::string version{};
    std::string message{};
};

// One request received on `/postLog`, with the members the app sends picked
// out of the body, which is kept as it came.
struct LogEntry {
    std::int64_t id = 0;
    std::int64_t receivedAtMs = 0;
    std::string remoteAddress{};
    std::string contentType{};
    std::string accept{};
    std::string userAgent{};
    std::string serverIp{};
    std::string serverPort{};
    std::string clientIp{};
    std::string body{};
};

// The shapes served to the app.
Json wireJson(const PartneredServer& server);
Json wireJson(const BlacklistServer& server);
Json wireJson(const Message& message);

// The shapes of the operator's `list --json`: the wire shape plus the ids
// that `remove` and `update` take.
Json listingJson(const PartneredServer& server);
Json listingJson(const BlacklistServer& server);
Json listingJson(const Message& message);
Json listingJson(const LogEntry& entry);

// Milliseconds since the Unix epoch by the system clock.
std::int64_t currentTimeMilliseconds();

// Milliseconds since the epoch as "2024-05-01T12:00:00.123Z".
std::string formatUtcTimestamp(std::int64_t millisecondsSinceEpoch);

// Dumps JSON as UTF-8 without escaping, replacing any invalid byte sequence
// rather than throwing: operators type whatever their terminal gives them.
std::string dumpJson(const Json& value, int indent = -1);

}  // namespace ferrylink::backend
