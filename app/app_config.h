#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ferrylink::raknet {
class Printer;
}

namespace ferrylink::app {

// Host-name fragment of the Java-only network that Run refuses.
inline constexpr std::string_view kJavaNetworkFragment = "hypixel";

// The backend's host as built in; FERRYLINK_BACKEND_HOST at configure time
// changes it.
std::string_view builtInBackendHost();

inline constexpr int kBackendPort = 8443;

// Decides whether a cleaned host and port name a reachable address family;
// the default asks the system's blocking resolver.
using NameCheck = std::function<bool(const std::string& host, const std::string& port)>;

// Everything about the app core that a deployment or a test may change. The
// defaults are what the product ships with.
struct AppConfig {
    // The backend: https://backendHost:backendPort.
    std::string backendHost{builtInBackendHost()};
    int backendPort = kBackendPort;
    // A PEM file of CA certificates to trust instead of the system's store.
    std::optional<std::filesystem::path> backendCaFile;

    // Folder of the app's data file; empty: the user's XDG data folder.
    std::filesystem::path dataDirectory;

    // Where the bridge listens for consoles.
    std::string bridgeHost = "0.0.0.0";
    int bridgePort = 19132;

    // The form's name check; empty: the system resolver.
    NameCheck nameCheck;

    // Where the bridge's console lines go, on the main queue, besides
    // nowhere; empty: nowhere at all.
    std::shared_ptr<raknet::Printer> console;

    // The addresses the start-up probe opens its sockets towards; empty: the
    // machine's own Ethernet-like IPv4 addresses.
    std::optional<std::vector<std::string>> localNetworkAddresses;

    // The built-in values with the environment's overrides:
    // FERRYLINK_BACKEND_HOST, FERRYLINK_BACKEND_PORT, FERRYLINK_BACKEND_CA,
    // FERRYLINK_DATA_DIR. Throws std::invalid_argument for a port that is
    // not a number from 1 to 65535.
    static AppConfig fromEnvironment();
};

// The file that holds the user defaults and the favourites:
// <dataDirectory>/Ferrylink.sqlite, where an empty dataDirectory means
// $XDG_DATA_HOME/ferrylink, else ~/.local/share/ferrylink. Empty when neither
// variable gives a folder.
std::filesystem::path dataFilePath(const std::filesystem::path& dataDirectory);

}  // namespace ferrylink::app
