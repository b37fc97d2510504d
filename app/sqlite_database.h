#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

struct sqlite3;

namespace ferrylink::app {

// A failure of the database, with SQLite's own words for it.
class StoreError : public std::runtime_error {
public:
    StoreError(int code, const std::string& message, const std::filesystem::path& path);

    int code() const { return code_; }
    // SQLite's message alone, e.g. "database is locked".
    const std::string& localizedDescription() const { return message_; }
    // The whole error as it prints itself: message, code and file.
    std::string description() const { return what(); }

private:
    int code_;
    std::string message_;
};

// One value of a column: NULL, an integer or a text.
using SqlValue = std::variant<std::monostate, int64_t, std::string>;
using SqlRow = std::vector<SqlValue>;

// One connection to one file, used by one owner at a time. Every failure is
// thrown as a StoreError.
class SqliteDatabase {
public:
    // Opens the file, creating it and its folder when missing.
    explicit SqliteDatabase(const std::filesystem::path& path);
    ~SqliteDatabase();
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    const std::filesystem::path& path() const { return path_; }

    // Runs one statement with its parameters bound in order; gives its rows.
    std::vector<SqlRow> query(std::string_view sql, const std::vector<SqlValue>& parameters = {});
    // Runs statements that take no parameters, separated by ';'.
    void execute(std::string_view sql);
    int64_t lastInsertRowId() const;

    // Runs `work` inside BEGIN IMMEDIATE / COMMIT; rolls back and rethrows
    // when it throws.
    template <typename Work>
    void transaction(Work&& work) {
        execute("BEGIN IMMEDIATE");
        try {
            work();
            execute("COMMIT");
        } catch (...) {
            rollback();
            throw;
        }
    }

private:
    void rollback() noexcept;
    [[noreturn]] void fail(int code) const;

    std::filesystem::path path_;
    sqlite3* database_ = nullptr;
};

}  // namespace ferrylink::app
