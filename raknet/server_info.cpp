#include "raknet/server_info.h"

#include <charconv>
#include <vector>


namespace ferrylink::raknet {

namespace {

// Splits at every ";", keeping empty pieces.
std::vector<std::string_view> pieces(std::string_view text) {
    std::vector<std::string_view> result;
    while (true) {
        size_t separator = text.find(';');
        result.push_back(text.substr(0, separator));
        if (separator == std::string_view::npos) {
            return result;
        }
        text.remove_prefix(separator + 1);
    }
}

// A base-10 signed 64-bit number with an optional sign; nothing for anything else.
std::optional<int64_t> number(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') {
            return std::nullopt;
        }
    }
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

ServerInfo::ServerInfo(std::string motd, std::string name, int64_t protocolVersion, std::string version,
                       int64_t currentPlayers, int64_t maxPlayers, std::string gamemode, int64_t serverId)
    : motd(std::move(motd)),
      name(std::move(name)),
      protocolVersion(protocolVersion),
      version(std::move(version)),
      currentPlayers(currentPlayers),
      maxPlayers(maxPlayers),
      gamemode(std::move(gamemode)),
      serverId(serverId) {}

std::optional<ServerInfo> ServerInfo::parse(std::string_view advert) {
    auto fields = pieces(advert);
    if (fields.size() < 9) {
        return std::nullopt;
    }
    auto protocolVersion = number(fields[2]);
    auto currentPlayers = number(fields[4]);
    auto maxPlayers = number(fields[5]);
    if (!protocolVersion || !currentPlayers || !maxPlayers) {
        return std::nullopt;
    }
    // Position 6, the remote server's id, is deliberately never read.
    return ServerInfo(std::string(fields[1]), std::string(fields[7]), *protocolVersion, std::string(fields[3]),
                      *currentPlayers, *maxPlayers, std::string(fields[8]), 1);
}

std::string ServerInfo::description() const {
    return "MCPE;" + motd + ";" + std::to_string(protocolVersion) + ";" + version + ";" +
           std::to_string(currentPlayers) + ";" + std::to_string(maxPlayers) + ";" + std::to_string(serverId) +
           ";" + name + ";" + gamemode;
}

}  // namespace ferrylink::raknet
