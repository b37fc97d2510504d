#pragma once

// The backend's data, kept in one SQLite file that the server and the
// operator's commands share. The server reads it afresh on every request, so
// an edit made with the command line shows in the next answer.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "backend/records.h"

#include "app/sqlite_database.h"

namespace ferrylink::backend {

// A failure of the database, with SQLite's own words for it.
using StoreError = app::StoreError;

// The fields of a partnered server to change; absent ones stay as they are.
struct PartnerChanges {
    std::optional<bool> status{};
    std::optional<std::string> ip{};
    std::optional<std::string> port{};
    std::optional<std::string> title{};
    std::optional<std::string> subtitle{};
    std::optional<std::string> players{};
    std::optional<std::string> maxPlayers{};
};

// Safe to call from any thread: one connection, used under one mutex. Every
// failure of the database is thrown as a StoreError, a layout of another
// version as std::runtime_error.
class Store {
public:
    // Opens the file, creating it and its tables when missing. ":memory:"
    // gives a private database that lives as long as the object.
    explicit Store(const std::filesystem::path& path);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Partnered servers, served in the order they were added.
    PartneredServer addPartner(const PartneredServer& server);
    std::vector<PartneredServer> partners() const;
    std::optional<PartneredServer> updatePartner(std::int64_t id, const PartnerChanges& changes);
    bool removePartner(std::int64_t id);

    // Blocked hosts, unique by text. Adding one that is there already gives
    // std::nullopt and changes nothing.
    std::optional<BlacklistServer> addBlocked(const std::string& ip, std::int64_t nowMs);
    std::vector<BlacklistServer> blocked() const;
    bool removeBlocked(const std::string& ip);

    // Messages, newest first: the app shows only the first one it gets, so a
    // message just added is the one users see.
    Message addMessage(const std::string& version, const std::string& text);
    std::vector<Message> messages(const std::optional<std::string>& version = std::nullopt) const;
    bool removeMessage(std::int64_t id);

    // Runs reported by the app, oldest first. A limit keeps the newest ones.
    LogEntry addLogEntry(const LogEntry& entry);
    // Drops every note but the newest `keep`, and those received before
    // `notBeforeMs`.
    void pruneLogEntries(std::size_t keep, std::int64_t notBeforeMs);
    std::vector<LogEntry> logEntries(std::optional<std::size_t> newestCount = std::nullopt) const;

private:
    std::unique_ptr<app::SqliteDatabase> database_;
    mutable std::mutex mutex_;
};

}  // namespace ferrylink::backend
