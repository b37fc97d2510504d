#include "backend/records.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace ferrylink::backend {

Json wireJson(const PartneredServer& server) {
    return {
        {"status", server.status},
        {"ip", server.ip},
        {"port", server.port},
        {"title", server.title},
        {"subtitle", server.subtitle},
        {"players", server.players},
        {"maxPlayers", server.maxPlayers},
    };
}

Json wireJson(const BlacklistServer& server) {
    return {{"ip", server.ip}};
}

Json wireJson(const Message& message) {
    return {
        {"id", message.id},
        {"version", message.version},
        {"message", message.message},
    };
}

Json listingJson(const PartneredServer& server) {
    Json json = wireJson(server);
    json["id"] = server.id;
    return json;
}

Json listingJson(const BlacklistServer& server) {
    return {
        {"id", server.id},
        {"ip", server.ip},
        {"addedAt", formatUtcTimestamp(server.addedAtMs)},
    };
}

Json listingJson(const Message& message) {
    return wireJson(message);
}

Json listingJson(const LogEntry& entry) {
    return {
        {"id", entry.id},
        {"receivedAt", formatUtcTimestamp(entry.receivedAtMs)},
        {"remoteAddress", entry.remoteAddress},
        {"contentType", entry.contentType},
        {"accept", entry.accept},
        {"userAgent", entry.userAgent},
        {"serverIp", entry.serverIp},
        {"serverPort", entry.serverPort},
        {"clientIp", entry.clientIp},
        {"body", entry.body},
    };
}

std::int64_t currentTimeMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string formatUtcTimestamp(std::int64_t millisecondsSinceEpoch) {
    std::int64_t seconds = millisecondsSinceEpoch / 1000;
    std::int64_t milliseconds = millisecondsSinceEpoch % 1000;
    if (milliseconds < 0) {
        milliseconds += 1000;
        seconds -= 1;
    }
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&time, &utc);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(milliseconds));
    return text.data();
}

std::string dumpJson(const Json& value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace ferrylink::backend
