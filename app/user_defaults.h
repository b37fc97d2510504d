#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace ferrylink::app {

class SqliteDatabase;

// One stored value: a bool, an integer or a text.
using DefaultsValue = std::variant<bool, int64_t, std::string>;

// The user's small settings, kept in the app's data file beside the
// favourites. Every write is its own transaction and is on disk when the
// call returns. Safe from any thread.
//
// Keys in use: "clientUUID" (text), "reviewCounter" (integer),
// "featuredHide" (bool: true shows the partnered list), and one bool true per
// message the user dismissed for good, under the base64 of its text.
class UserDefaults {
public:
    // Opens (or creates) the file. A file that can't be opened ends the
    // process with the reason: the app has no settings to run without.
    explicit UserDefaults(const std::filesystem::path& file);
    ~UserDefaults();

    std::optional<DefaultsValue> object(std::string_view key) const;
    // 0 when absent; a bool reads as 0 or 1, a text by its leading number.
    int64_t integer(std::string_view key) const;
    // false when absent; an integer reads true unless 0, a text when it is
    // "true", "yes" or a number other than 0 (in any case).
    bool boolean(std::string_view key) const;
    // The text, or an integer's decimal form; std::nullopt for a bool or
    // when absent.
    std::optional<std::string> string(std::string_view key) const;

    void setInteger(std::string_view key, int64_t value);
    void setBool(std::string_view key, bool value);
    void setString(std::string_view key, std::string_view value);
    void removeObject(std::string_view key);

private:
    void write(std::string_view key, const DefaultsValue& value);

    mutable std::mutex mutex_;
    std::unique_ptr<SqliteDatabase> database_;
};

}  // namespace ferrylink::app
