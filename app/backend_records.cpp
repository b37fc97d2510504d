#include "app/backend_records.h"

#include <cmath>
#include <limits>

namespace ferrylink::app {

namespace {

std::optional<std::string> stringMember(const nlohmann::json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_string()) {
        return std::nullopt;
    }
    return it->get<std::string>();
}

std::optional<bool> boolMember(const nlohmann::json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_boolean()) {
        return std::nullopt;
    }
    return it->get<bool>();
}

// A JSON number that is a whole value within 64 bits, 7 and 7.0 alike.
std::optional<int64_t> int64Member(const nlohmann::json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end()) {
        return std::nullopt;
    }
    if (it->is_number_integer() && !it->is_number_unsigned()) {
        return it->get<int64_t>();
    }
    if (it->is_number_unsigned()) {
        auto value = it->get<uint64_t>();
        if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            return std::nullopt;
        }
        return static_cast<int64_t>(value);
    }
    if (it->is_number_float()) {
        double value = it->get<double>();
        if (std::trunc(value) != value || value < -9.223372036854775808e18 || value >= 9.223372036854775808e18) {
            return std::nullopt;
        }
        return static_cast<int64_t>(value);
    }
    return std::nullopt;
}

}  // namespace

PartneredServer partneredPlaceholder() {
    return PartneredServer{
        .status = true,
        .ip = "0.0.0.0",
        .port = "19132",
        .title = "Partnered servers",
        .subtitle = "\u00A7l\u00A7funavailable!",
        .players = "-",
        .maxPlayers = "-",
    };
}

std::optional<BlacklistServer> decodeBlacklistServer(const nlohmann::json& element) {
    if (!element.is_object()) {
        return std::nullopt;
    }
    auto ip = stringMember(element, "ip");
    if (!ip) {
        return std::nullopt;
    }
    return BlacklistServer{*ip};
}

std::optional<Message> decodeMessage(const nlohmann::json& element) {
    if (!element.is_object()) {
        return std::nullopt;
    }
    auto id = int64Member(element, "id");
    auto version = stringMember(element, "version");
    auto message = stringMember(element, "message");
    if (!id || !version || !message) {
        return std::nullopt;
    }
    return Message{*id, *version, *message};
}

std::optional<PartneredServer> decodePartneredServer(const nlohmann::json& element) {
    if (!element.is_object()) {
        return std::nullopt;
    }
    auto status = boolMember(element, "status");
    auto ip = stringMember(element, "ip");
    auto port = stringMember(element, "port");
    auto title = stringMember(element, "title");
    auto subtitle = stringMember(element, "subtitle");
    auto players = stringMember(element, "players");
    auto maxPlayers = stringMember(element, "maxPlayers");
    if (!status || !ip || !port || !title || !subtitle || !players || !maxPlayers) {
        return std::nullopt;
    }
    return PartneredServer{*status, *ip, *port, *title, *subtitle, *players, *maxPlayers};
}

}  // namespace ferrylink::app
