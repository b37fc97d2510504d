#include "backend/store.h"

#include <utility>

#include "app/sqlite_database.h"

namespace ferrylink::backend {
namespace {

using app::SqlRow;
using app::SqlValue;

constexpr int kSchemaVersion = 1;

constexpr const char* kSchema = R"sql(
CREATE TABLE partners (
    id          INTEGER PRIMARY KEY AUTOINCREMENT,
    status      INTEGER NOT NULL,
    ip          TEXT NOT NULL,
    port        TEXT NOT NULL,
    title       TEXT NOT NULL,
    subtitle    TEXT NOT NULL,
    players     TEXT NOT NULL,
    max_players TEXT NOT NULL
);
CREATE TABLE blocked_hosts (
    id          INTEGER PRIMARY KEY AUTOINCREMENT,
    ip          TEXT NOT NULL UNIQUE,
    added_at_ms INTEGER NOT NULL
);
CREATE TABLE messages (
    id      INTEGER PRIMARY KEY AUTOINCREMENT,
    version TEXT NOT NULL,
    message TEXT NOT NULL
);
CREATE INDEX messages_by_version ON messages (version);
CREATE TABLE run_log (
    id             INTEGER PRIMARY KEY AUTOINCREMENT,
    received_at_ms INTEGER NOT NULL,
    remote_address TEXT NOT NULL,
    content_type   TEXT NOT NULL,
    accept         TEXT NOT NULL,
    user_agent     TEXT NOT NULL,
    server_ip      TEXT NOT NULL,
    server_port    TEXT NOT NULL,
    client_ip      TEXT NOT NULL,
    body           TEXT NOT NULL
);
)sql";

constexpr const char* kPartnerColumns =
    "id, status, ip, port, title, subtitle, players, max_players";
constexpr const char* kLogColumns =
    "id, received_at_ms, remote_address, content_type, accept, user_agent, server_ip, server_port, "
    "client_ip, body";

std::int64_t integer(const SqlValue& value) {
    auto* number = std::get_if<std::int64_t>(&value);
    return number != nullptr ? *number : 0;
}

std::string text(const SqlValue& value) {
    auto* string = std::get_if<std::string>(&value);
    return string != nullptr ? *string : std::string();
}

SqlValue optionalText(const std::optional<std::string>& value) {
    return value ? SqlValue(*value) : SqlValue();
}

PartneredServer readPartner(const SqlRow& row) {
    return PartneredServer{
        .id = integer(row[0]),
        .status = integer(row[1]) != 0,
        .ip = text(row[2]),
        .port = text(row[3]),
        .title = text(row[4]),
        .subtitle = text(row[5]),
        .players = text(row[6]),
        .maxPlayers = text(row[7]),
    };
}

LogEntry readLogEntry(const SqlRow& row) {
    LogEntry entry;
    entry.id = integer(row[0]);
    entry.receivedAtMs = integer(row[1]);
    entry.remoteAddress = text(row[2]);
    entry.contentType = text(row[3]);
    entry.accept = text(row[4]);
    entry.userAgent = text(row[5]);
    entry.serverIp = text(row[6]);
    entry.serverPort = text(row[7]);
    entry.clientIp = text(row[8]);
    entry.body = text(row[9]);
    return entry;
}

}  // namespace

Store::Store(const std::filesystem::path& path) : database_(std::make_unique<app::SqliteDatabase>(path)) {
    // The server and the operator's commands are separate processes on one
    // file; the database waits for the other's write rather than fail.
    database_->transaction([&] {
        const std::int64_t current = integer(database_->query("PRAGMA user_version").at(0).at(0));
        if (current == 0) {
            database_->execute(kSchema);
            database_->execute("PRAGMA user_version = " + std::to_string(kSchemaVersion));
        } else if (current != kSchemaVersion) {
            throw std::runtime_error("the database has layout version " + std::to_string(current) +
                                     ", this program knows version " + std::to_string(kSchemaVersion));
        }
    });
}

Store::~Store() = default;

PartneredServer Store::addPartner(const PartneredServer& server) {
    std::lock_guard lock(mutex_);
    auto rows = database_->query(
        "INSERT INTO partners (status, ip, port, title, subtitle, players, max_players) "
        "VALUES (?, ?, ?, ?, ?, ?, ?) RETURNING id",
        {std::int64_t{server.status ? 1 : 0}, server.ip, server.port, server.title, server.subtitle, server.players,
         server.maxPlayers});
    PartneredServer added = server;
    added.id = integer(rows.at(0).at(0));
    return added;
}

std::vector<PartneredServer> Store::partners() const {
    std::lock_guard lock(mutex_);
    std::vector<PartneredServer> servers;
    for (const auto& row : database_->query(std::string("SELECT ") + kPartnerColumns + " FROM partners ORDER BY id")) {
        servers.push_back(readPartner(row));
    }
    return servers;
}

std::optional<PartneredServer> Store::updatePartner(std::int64_t id, const PartnerChanges& changes) {
    std::lock_guard lock(mutex_);
    // One statement: a column whose parameter is NULL keeps its value.
    auto rows = database_->query(
        std::string("UPDATE partners SET "
                    "status = coalesce(?2, status), ip = coalesce(?3, ip), port = coalesce(?4, port), "
                    "title = coalesce(?5, title), subtitle = coalesce(?6, subtitle), "
                    "players = coalesce(?7, players), max_players = coalesce(?8, max_players) "
                    "WHERE id = ?1 RETURNING ") +
            kPartnerColumns,
        {id, changes.status ? SqlValue(std::int64_t{*changes.status ? 1 : 0}) : SqlValue(), optionalText(changes.ip),
         optionalText(changes.port), optionalText(changes.title), optionalText(changes.subtitle),
         optionalText(changes.players), optionalText(changes.maxPlayers)});
    if (rows.empty()) {
        return std::nullopt;
    }
    return readPartner(rows[0]);
}

bool Store::removePartner(std::int64_t id) {
    std::lock_guard lock(mutex_);
    return !database_->query("DELETE FROM partners WHERE id = ? RETURNING id", {id}).empty();
}

std::optional<BlacklistServer> Store::addBlocked(const std::string& ip, std::int64_t nowMs) {
    std::lock_guard lock(mutex_);
    auto rows = database_->query("INSERT OR IGNORE INTO blocked_hosts (ip, added_at_ms) VALUES (?, ?) RETURNING id",
                                 {ip, nowMs});
    if (rows.empty()) {
        return std::nullopt;
    }
    return BlacklistServer{integer(rows[0][0]), ip, nowMs};
}

std::vector<BlacklistServer> Store::blocked() const {
    std::lock_guard lock(mutex_);
    std::vector<BlacklistServer> servers;
    for (const auto& row : database_->query("SELECT id, ip, added_at_ms FROM blocked_hosts ORDER BY id")) {
        servers.push_back({integer(row[0]), text(row[1]), integer(row[2])});
    }
    return servers;
}

bool Store::removeBlocked(const std::string& ip) {
    std::lock_guard lock(mutex_);
    return !database_->query("DELETE FROM blocked_hosts WHERE ip = ? RETURNING id", {ip}).empty();
}

Message Store::addMessage(const std::string& version, const std::string& message) {
    std::lock_guard lock(mutex_);
    auto rows = database_->query("INSERT INTO messages (version, message) VALUES (?, ?) RETURNING id", {version, message});
    return Message{integer(rows.at(0).at(0)), version, message};
}

std::vector<Message> Store::messages(const std::optional<std::string>& version) const {
    std::lock_guard lock(mutex_);
    std::vector<Message> found;
    for (const auto& row : database_->query("SELECT id, version, message FROM messages WHERE ?1 IS NULL OR version = ?1 "
                                            "ORDER BY id DESC",
                                            {optionalText(version)})) {
        found.push_back({integer(row[0]), text(row[1]), text(row[2])});
    }
    return found;
}

bool Store::removeMessage(std::int64_t id) {
    std::lock_guard lock(mutex_);
    return !database_->query("DELETE FROM messages WHERE id = ? RETURNING id", {id}).empty();
}

LogEntry Store::addLogEntry(const LogEntry& entry) {
    std::lock_guard lock(mutex_);
    auto rows = database_->query(
        "INSERT INTO run_log (received_at_ms, remote_address, content_type, accept, user_agent, "
        "server_ip, server_port, client_ip, body) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?) RETURNING id",
        {entry.receivedAtMs, entry.remoteAddress, entry.contentType, entry.accept, entry.userAgent, entry.serverIp,
         entry.serverPort, entry.clientIp, entry.body});
    LogEntry stored = entry;
    stored.id = integer(rows.at(0).at(0));
    return stored;
}

void Store::pruneLogEntries(std::size_t keep, std::int64_t notBeforeMs) {
    std::lock_guard lock(mutex_);
    // Ids grow with time, so both cuts are a range of ids at the old end.
    database_->query("DELETE FROM run_log WHERE id <= (SELECT coalesce(max(id), 0) FROM run_log) - ?1 "
                     "OR id <= (SELECT coalesce(max(id), 0) FROM run_log WHERE received_at_ms < ?2)",
                     {static_cast<std::int64_t>(keep), notBeforeMs});
}

std::vector<LogEntry> Store::logEntries(std::optional<std::size_t> newestCount) const {
    std::lock_guard lock(mutex_);
    // The newest N by id, then handed back in the order they came.
    std::vector<LogEntry> entries;
    for (const auto& row : database_->query(std::string("SELECT * FROM (SELECT ") + kLogColumns +
                                                " FROM run_log ORDER BY id DESC LIMIT ?) ORDER BY id",
                                            {newestCount ? static_cast<std::int64_t>(*newestCount) : std::int64_t{-1}})) {
        entries.push_back(readLogEntry(row));
    }
    return entries;
}

}  // namespace ferrylink::backend
