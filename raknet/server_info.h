#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ferrylink::raknet {

// A server's advert, the text of an UnconnectedPong. Shared by reference
// (std::shared_ptr) between whoever built it and the Listener, which writes its
// own id into `serverId` when it binds.
class ServerInfo {
public:
    ServerInfo(std::string motd, std::string name, int64_t protocolVersion, std::string version,
               int64_t currentPlayers, int64_t maxPlayers, std::string gamemode, int64_t serverId);

    // Parses the text of a pong: nothing when it has fewer than nine
    // ";"-separated pieces or a count is empty or not a number. Position 0 and
    // position 6 are never read; `serverId` is always 1.
    static std::optional<ServerInfo> parse(std::string_view advert);

    // "MCPE;motd;protocolVersion;version;currentPlayers;maxPlayers;serverId;name;gamemode",
    // nothing escaped.
    std::string description() const;

    friend bool operator==(const ServerInfo&, const ServerInfo&) = default;

    std::string motd;
    std::string name;
    int64_t protocolVersion;
    std::string version;
    int64_t currentPlayers;
    int64_t maxPlayers;
    std::string gamemode;
    int64_t serverId;
};

}  // namespace ferrylink::raknet
