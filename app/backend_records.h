#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace ferrylink::app {

// One entry of /blacklist/all.
struct BlacklistServer {
    std::string ip;

    bool operator==(const BlacklistServer&) const = default;
};

// One element of /message/by-version.
struct Message {
    int64_t id = 0;
    std::string version;
    std::string message;

    bool operator==(const Message&) const = default;
};

// One row of /getStatus. Every field but `status` is text on the wire.
struct PartneredServer {
    bool status = false;
    std::string ip;
    std::string port;
    std::string title;
    std::string subtitle;  // section-sign formatted
    std::string players;
    std::string maxPlayers;

    bool operator==(const PartneredServer&) const = default;
};

// The row the partnered list shows after a failed fetch. It can be picked
// like any other.
PartneredServer partneredPlaceholder();

// One element each; std::nullopt when a required key is missing or of
// another JSON type. Keys the record doesn't know are passed over.
std::optional<BlacklistServer> decodeBlacklistServer(const nlohmann::json& element);
std::optional<Message> decodeMessage(const nlohmann::json& element);
std::optional<PartneredServer> decodePartneredServer(const nlohmann::json& element);

// Decodes a JSON array at the root, element by element. An element that
// isn't the wanted record but is a JSON object is dropped and costs only
// itself; an element that is no object at all (a bare number, a string),
// a root that is no array, or text that isn't JSON fails the whole body.
template <typename T>
std::optional<std::vector<T>> decodeSkippingBadElements(
    std::string_view body, const std::function<std::optional<T>(const nlohmann::json&)>& decodeElement) {
    auto root = nlohmann::json::parse(body, nullptr, /*allow_exceptions=*/false);
    if (!root.is_array()) {
        return std::nullopt;
    }
    std::vector<T> result;
    for (const auto& element : root) {
        if (auto decoded = decodeElement(element)) {
            result.push_back(std::move(*decoded));
        } else if (!element.is_object()) {
            return std::nullopt;
        }
    }
    return result;
}

}  // namespace ferrylink::app
