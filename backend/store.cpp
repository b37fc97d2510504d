#include "backend/store.h"

#include <sqlite3.h>

#include <string_view>
#include <utility>

namespace ferrylink::backend {
namespace {

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

[[noreturn]] void throwError(sqlite3* database, std::string_view what) {
    throw StoreError(std::string(what) + ": " + sqlite3_errmsg(database));
}

// One prepared statement, finalised on every path out.
class Statement {
public:
    Statement(sqlite3* database, std::string_view sql) : database_(database) {
        if (sqlite3_prepare_v2(database, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr) !=
            SQLITE_OK) {
            throwError(database, "cannot prepare a database statement");
        }
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, std::int64_t value) {
        check(sqlite3_bind_int64(statement_, index, value));
        return *this;
    }
    Statement& bind(int index, const std::string& value) {
        check(sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()),
                                SQLITE_TRANSIENT));
        return *this;
    }
    Statement& bindNull(int index) {
        check(sqlite3_bind_null(statement_, index));
        return *this;
    }

    // True while a row is there to read.
    bool step() {
        const int result = sqlite3_step(statement_);
        if (result == SQLITE_ROW) {
            return true;
        }
        if (result == SQLITE_DONE) {
            return false;
        }
        throwError(database_, "database query failed");
    }

    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
    std::string text(int column) const {
        const auto* bytes = sqlite3_column_text(statement_, column);
        const int size = sqlite3_column_bytes(statement_, column);
        return bytes == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(bytes), size);
    }

private:
    void check(int result) {
        if (result != SQLITE_OK) {
            throwError(database_, "cannot bind a database parameter");
        }
    }

    sqlite3* database_;
    sqlite3_stmt* statement_ = nullptr;
};

void execute(sqlite3* database, const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(database, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        std::string text = message != nullptr ? message : "unknown error";
        sqlite3_free(message);
        throw StoreError("database statement failed: " + text);
    }
}

PartneredServer readPartner(const Statement& row) {
    PartneredServer server;
    server.id = row.integer(0);
    server.status = row.integer(1) != 0;
    server.ip = row.text(2);
    server.port = row.text(3);
    server.title = row.text(4);
    server.subtitle = row.text(5);
    server.players = row.text(6);
    server.maxPlayers = row.text(7);
    return server;
}

LogEntry readLogEntry(const Statement& row) {
    LogEntry entry;
    entry.id = row.integer(0);
    entry.receivedAtMs = row.integer(1);
    entry.remoteAddress = row.text(2);
    entry.contentType = row.text(3);
    entry.accept = row.text(4);
    entry.userAgent = row.text(5);
    entry.serverIp = row.text(6);
    entry.serverPort = row.text(7);
    entry.clientIp = row.text(8);
    entry.body = row.text(9);
    return entry;
}

std::optional<PartneredServer> findPartner(sqlite3* database, std::int64_t id) {
    Statement query(database, std::string("SELECT ") + kPartnerColumns + " FROM partners WHERE id = ?1");
    query.bind(1, id);
    if (!query.step()) {
        return std::nullopt;
    }
    return readPartner(query);
}

}  // namespace

Store::Store(const std::filesystem::path& path) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.c_str(), &database_, flags, nullptr) != SQLITE_OK) {
        std::string reason = database_ != nullptr ? sqlite3_errmsg(database_) : "out of memory";
        sqlite3_close(database_);
        throw StoreError("cannot open database " + path.string() + ": " + reason);
    }
    try {
        // The server and the operator's commands are separate processes on one
        // file: wait for the other's write rather than fail, and let readers
        // go on while it happens.
        sqlite3_busy_timeout(database_, 5000);
        execute(database_, "PRAGMA journal_mode = WAL");
        createSchema();
    } catch (...) {
        sqlite3_close(database_);
        throw;
    }
}

Store::~Store() {
    sqlite3_close(database_);
}

void Store::createSchema() {
    execute(database_, "BEGIN IMMEDIATE");
    try {
        Statement version(database_, "PRAGMA user_version");
        version.step();
        const std::int64_t current = version.integer(0);
        if (current == 0) {
            execute(database_, kSchema);
            execute(database_, ("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
        } else if (current != kSchemaVersion) {
            throw StoreError("the database has layout version " + std::to_string(current) +
                             ", this program knows version " + std::to_string(kSchemaVersion));
        }
        execute(database_, "COMMIT");
    } catch (...) {
        sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

PartneredServer Store::addPartner(const PartneredServer& server) {
    std::lock_guard lock(mutex_);
    Statement insert(database_,
                     "INSERT INTO partners (status, ip, port, title, subtitle, players, max_players) "
                     "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    insert.bind(1, std::int64_t{server.status ? 1 : 0})
        .bind(2, server.ip)
        .bind(3, server.port)
        .bind(4, server.title)
        .bind(5, server.subtitle)
        .bind(6, server.players)
        .bind(7, server.maxPlayers);
    insert.step();
    PartneredServer added = server;
    added.id = sqlite3_last_insert_rowid(database_);
    return added;
}

std::vector<PartneredServer> Store::partners() const {
    std::lock_guard lock(mutex_);
    Statement query(database_, std::string("SELECT ") + kPartnerColumns + " FROM partners ORDER BY id");
    std::vector<PartneredServer> servers;
    while (query.step()) {
        servers.push_back(readPartner(query));
    }
    return servers;
}

std::optional<PartneredServer> Store::updatePartner(std::int64_t id, const PartnerChanges& changes) {
    std::lock_guard lock(mutex_);
    // One statement: a column whose parameter is NULL keeps its value.
    Statement update(database_,
                     "UPDATE partners SET "
                     "status = coalesce(?2, status), ip = coalesce(?3, ip), port = coalesce(?4, port), "
                     "title = coalesce(?5, title), subtitle = coalesce(?6, subtitle), "
                     "players = coalesce(?7, players), max_players = coalesce(?8, max_players) "
                     "WHERE id = ?1");
    update.bind(1, id);
    if (changes.status) {
        update.bind(2, std::int64_t{*changes.status ? 1 : 0});
    } else {
        update.bindNull(2);
    }
    const std::optional<std::string>* texts[] = {&changes.ip,       &changes.port,    &changes.title,
                                                 &changes.subtitle, &changes.players, &changes.maxPlayers};
    int index = 3;
    for (const auto* text : texts) {
        if (*text) {
            update.bind(index, **text);
        } else {
            update.bindNull(index);
        }
        ++index;
    }
    update.step();
    if (sqlite3_changes(database_) == 0) {
        return std::nullopt;
    }
    return findPartner(database_, id);
}

bool Store::removePartner(std::int64_t id) {
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM partners WHERE id = ?1");
    remove.bind(1, id);
    remove.step();
    return sqlite3_changes(database_) > 0;
}

std::optional<BlacklistServer> Store::addBlocked(const std::string& ip, std::int64_t nowMs) {
    std::lock_guard lock(mutex_);
    Statement insert(database_, "INSERT OR IGNORE INTO blocked_hosts (ip, added_at_ms) VALUES (?1, ?2)");
    insert.bind(1, ip).bind(2, nowMs);
    insert.step();
    if (sqlite3_changes(database_) == 0) {
        return std::nullopt;
    }
    return BlacklistServer{sqlite3_last_insert_rowid(database_), ip, nowMs};
}

std::vector<BlacklistServer> Store::blocked() const {
    std::lock_guard lock(mutex_);
    Statement query(database_, "SELECT id, ip, added_at_ms FROM blocked_hosts ORDER BY id");
    std::vector<BlacklistServer> servers;
    while (query.step()) {
        servers.push_back({query.integer(0), query.text(1), query.integer(2)});
    }
    return servers;
}

bool Store::removeBlocked(const std::string& ip) {
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM blocked_hosts WHERE ip = ?1");
    remove.bind(1, ip);
    remove.step();
    return sqlite3_changes(database_) > 0;
}

Message Store::addMessage(const std::string& version, const std::string& text) {
    std::lock_guard lock(mutex_);
    Statement insert(database_, "INSERT INTO messages (version, message) VALUES (?1, ?2)");
    insert.bind(1, version).bind(2, text);
    insert.step();
    return Message{sqlite3_last_insert_rowid(database_), version, text};
}

std::vector<Message> Store::messages(const std::optional<std::string>& version) const {
    std::lock_guard lock(mutex_);
    Statement query(database_,
                    "SELECT id, version, message FROM messages WHERE ?1 IS NULL OR version = ?1 "
                    "ORDER BY id DESC");
    if (version) {
        query.bind(1, *version);
    } else {
        query.bindNull(1);
    }
    std::vector<Message> found;
    while (query.step()) {
        found.push_back({query.integer(0), query.text(1), query.text(2)});
    }
    return found;
}

bool Store::removeMessage(std::int64_t id) {
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM messages WHERE id = ?1");
    remove.bind(1, id);
    remove.step();
    return sqlite3_changes(database_) > 0;
}

LogEntry Store::addLogEntry(const LogEntry& entry) {
    std::lock_guard lock(mutex_);
    Statement insert(database_,
                     "INSERT INTO run_log (received_at_ms, remote_address, content_type, accept, user_agent, "
                     "server_ip, server_port, client_ip, body) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)");
    insert.bind(1, entry.receivedAtMs)
        .bind(2, entry.remoteAddress)
        .bind(3, entry.contentType)
        .bind(4, entry.accept)
        .bind(5, entry.userAgent)
        .bind(6, entry.serverIp)
        .bind(7, entry.serverPort)
        .bind(8, entry.clientIp)
        .bind(9, entry.body);
    insert.step();
    LogEntry stored = entry;
    stored.id = sqlite3_last_insert_rowid(database_);
    return stored;
}

void Store::pruneLogEntries(std::size_t keep, std::int64_t notBeforeMs) {
    std::lock_guard lock(mutex_);
    // Ids grow with time, so both cuts are a range of ids at the old end.
    Statement prune(database_,
                    "DELETE FROM run_log WHERE id <= (SELECT coalesce(max(id), 0) FROM run_log) - ?1 "
                    "OR id <= (SELECT coalesce(max(id), 0) FROM run_log WHERE received_at_ms < ?2)");
    prune.bind(1, static_cast<std::int64_t>(keep)).bind(2, notBeforeMs);
    prune.step();
}

std::vector<LogEntry> Store::logEntries(std::optional<std::size_t> newestCount) const {
    std::lock_guard lock(mutex_);
    // The newest N by id, then handed back in the order they came.
    Statement query(database_, std::string("SELECT * FROM (SELECT ") + kLogColumns +
                                   " FROM run_log ORDER BY id DESC LIMIT ?1) ORDER BY id");
    query.bind(1, newestCount ? static_cast<std::int64_t>(*newestCount) : std::int64_t{-1});
    std::vector<LogEntry> entries;
    while (query.step()) {
        entries.push_back(readLogEntry(query));
    }
    return entries;
}

}  // namespace ferrylink::backend
