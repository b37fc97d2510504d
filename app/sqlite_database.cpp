#include "app/sqlite_database.h"

#include <sqlite3.h>

#include <system_error>

namespace ferrylink::app {

namespace {
// Two connections share the file (the defaults and the favourites); a write
// of one waits this long for the other before it counts as failed.
constexpr int busyTimeoutMilliseconds = 5000;

struct StatementCloser {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
}  // namespace

StoreError::StoreError(int code, const std::string& message, const std::filesystem::path& path)
    : std::runtime_error(message + " (SQLite code " + std::to_string(code) + ", file " + path.string() + ")"),
      code_(code),
      message_(message) {}

SqliteDatabase::SqliteDatabase(const std::filesystem::path& path) : path_(path) {
    std::error_code error;
    if (path.has_parent_path()) {
        std::filesystem::create_directories(path.parent_path(), error);
        if (error) {
            throw StoreError(SQLITE_CANTOPEN, "cannot create the folder: " + error.message(), path);
        }
    }
    int code = sqlite3_open_v2(path.c_str(), &database_,
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (code != SQLITE_OK) {
        std::string message = database_ != nullptr ? sqlite3_errmsg(database_) : sqlite3_errstr(code);
        sqlite3_close(database_);
        database_ = nullptr;
        throw StoreError(code, message, path);
    }
    sqlite3_busy_timeout(database_, busyTimeoutMilliseconds);
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
}

SqliteDatabase::~SqliteDatabase() { sqlite3_close(database_); }

void SqliteDatabase::fail(int code) const { throw StoreError(code, sqlite3_errmsg(database_), path_); }

std::vector<SqlRow> SqliteDatabase::query(std::string_view sql, const std::vector<SqlValue>& parameters) {
    sqlite3_stmt* raw = nullptr;
    int code = sqlite3_prepare_v2(database_, sql.data(), static_cast<int>(sql.size()), &raw, nullptr);
    std::unique_ptr<sqlite3_stmt, StatementCloser> statement(raw);
    if (code != SQLITE_OK) {
        fail(code);
    }
    for (size_t i = 0; i < parameters.size(); ++i) {
        int index = static_cast<int>(i + 1);
        const auto& parameter = parameters[i];
        if (auto* integer = std::get_if<int64_t>(&parameter)) {
            code = sqlite3_bind_int64(raw, index, *integer);
        } else if (auto* text = std::get_if<std::string>(&parameter)) {
            code = sqlite3_bind_text(raw, index, text->data(), static_cast<int>(text->size()), SQLITE_TRANSIENT);
        } else {
            code = sqlite3_bind_null(raw, index);
        }
        if (code != SQLITE_OK) {
            fail(code);
        }
    }
    std::vector<SqlRow> rows;
    while ((code = sqlite3_step(raw)) == SQLITE_ROW) {
        SqlRow row;
        int columns = sqlite3_column_count(raw);
        for (int column = 0; column < columns; ++column) {
            switch (sqlite3_column_type(raw, column)) {
                case SQLITE_NULL:
                    row.emplace_back(std::monostate{});
                    break;
                case SQLITE_INTEGER:
                    row.emplace_back(static_cast<int64_t>(sqlite3_column_int64(raw, column)));
                    break;
                default: {
                    auto* text = reinterpret_cast<const char*>(sqlite3_column_text(raw, column));
                    int length = sqlite3_column_bytes(raw, column);
                    row.emplace_back(std::string(text != nullptr ? text : "", static_cast<size_t>(length)));
                }
            }
        }
        rows.push_back(std::move(row));
    }
    if (code != SQLITE_DONE) {
        fail(code);
    }
    return rows;
}

void SqliteDatabase::execute(std::string_view sql) {
    std::string text(sql);
    char* message = nullptr;
    int code = sqlite3_exec(database_, text.c_str(), nullptr, nullptr, &message);
    if (code != SQLITE_OK) {
        std::string words = message != nullptr ? message : sqlite3_errstr(code);
        sqlite3_free(message);
        throw StoreError(code, words, path_);
    }
}

int64_t SqliteDatabase::lastInsertRowId() const { return sqlite3_last_insert_rowid(database_); }

void SqliteDatabase::rollback() noexcept {
    if (sqlite3_get_autocommit(database_) == 0) {
        sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

}  // namespace ferrylink::app
