#include "app/user_defaults.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "app/sqlite_database.h"
#include "foundation/fatal.h"

namespace ferrylink::app {

namespace {

[[noreturn]] void defaultsFailed(const StoreError& error) {
    foundation::fatalFault("User defaults: " + error.description());
}

int64_t leadingNumber(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

}  // namespace

UserDefaults::UserDefaults(const std::filesystem::path& file) {
    try {
        database_ = std::make_unique<SqliteDatabase>(file);
        database_->execute(
            "CREATE TABLE IF NOT EXISTS defaults ("
            " key TEXT PRIMARY KEY NOT NULL,"
            " kind TEXT NOT NULL CHECK (kind IN ('bool', 'integer', 'string')),"
            " value)");
    } catch (const StoreError& error) {
        defaultsFailed(error);
    }
}

UserDefaults::~UserDefaults() = default;

std::optional<DefaultsValue> UserDefaults::object(std::string_view key) const {
    std::lock_guard lock(mutex_);
    std::vector<SqlRow> rows;
    try {
        rows = database_->query("SELECT kind, value FROM defaults WHERE key = ?", {std::string(key)});
    } catch (const StoreError& error) {
        defaultsFailed(error);
    }
    if (rows.empty()) {
        return std::nullopt;
    }
    const auto& kind = std::get<std::string>(rows[0][0]);
    const auto& value = rows[0][1];
    if (kind == "string") {
        auto* text = std::get_if<std::string>(&value);
        return DefaultsValue(text != nullptr ? *text : std::string());
    }
    auto* number = std::get_if<int64_t>(&value);
    int64_t integer = number != nullptr ? *number : 0;
    if (kind == "bool") {
        return DefaultsValue(integer != 0);
    }
    return DefaultsValue(integer);
}

int64_t UserDefaults::integer(std::string_view key) const {
    auto value = object(key);
    if (!value) {
        return 0;
    }
    if (auto* flag = std::get_if<bool>(&*value)) {
        return *flag ? 1 : 0;
    }
    if (auto* number = std::get_if<int64_t>(&*value)) {
        return *number;
    }
    return leadingNumber(std::get<std::string>(*value));
}

bool UserDefaults::boolean(std::string_view key) const {
    auto value = object(key);
    if (!value) {
        return false;
    }
    if (auto* flag = std::get_if<bool>(&*value)) {
        return *flag;
    }
    if (auto* number = std::get_if<int64_t>(&*value)) {
        return *number != 0;
    }
    std::string text = std::get<std::string>(*value);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text == "true" || text == "yes" || leadingNumber(text) != 0;
}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    auto value = object(key);
    if (!value) {
        return std::nullopt;
    }
    if (auto* text = std::get_if<std::string>(&*value)) {
        return *text;
    }
    if (auto* number = std::get_if<int64_t>(&*value)) {
        return std::to_string(*number);
    }
    return std::nullopt;
}

void UserDefaults::setInteger(std::string_view key, int64_t value) { write(key, value); }

void UserDefaults::setBool(std::string_view key, bool value) { write(key, value); }

void UserDefaults::setString(std::string_view key, std::string_view value) { write(key, std::string(value)); }

void UserDefaults::removeObject(std::string_view key) {
    std::lock_guard lock(mutex_);
    try {
        database_->query("DELETE FROM defaults WHERE key = ?", {std::string(key)});
    } catch (const StoreError& error) {
        defaultsFailed(error);
    }
}

void UserDefaults::write(std::string_view key, const DefaultsValue& value) {
    std::string kind;
    SqlValue stored;
    if (auto* flag = std::get_if<bool>(&value)) {
        kind = "bool";
        stored = int64_t{*flag ? 1 : 0};
    } else if (auto* number = std::get_if<int64_t>(&value)) {
        kind = "integer";
        stored = *number;
    } else {
        kind = "string";
        stored = std::get<std::string>(value);
    }
    std::lock_guard lock(mutex_);
    try {
        database_->query(
            "INSERT INTO defaults (key, kind, value) VALUES (?, ?, ?)"
            " ON CONFLICT (key) DO UPDATE SET kind = excluded.kind, value = excluded.value",
            {std::string(key), kind, stored});
    } catch (const StoreError& error) {
        defaultsFailed(error);
    }
}

}  // namespace ferrylink::app
