#include "app/app_config.h"

#include <cstdlib>
#include <stdexcept>

#ifndef FERRYLINK_BACKEND_HOST
#define FERRYLINK_BACKEND_HOST "backend.ferrylink.app"
#endif

namespace ferrylink::app {

namespace {

std::optional<std::string> environment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return std::string(value);
}

int parsePort(const std::string& text) {
    size_t used = 0;
    int port = 0;
    try {
        port = std::stoi(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != text.size() || port < 1 || port > 65535) {
        throw std::invalid_argument("FERRYLINK_BACKEND_PORT is not a port number: " + text);
    }
    return port;
}

}  // namespace

std::string_view builtInBackendHost() { return FERRYLINK_BACKEND_HOST; }

AppConfig AppConfig::fromEnvironment() {
    AppConfig config;
    if (auto host = environment("FERRYLINK_BACKEND_HOST")) {
        config.backendHost = *host;
    }
    if (auto port = environment("FERRYLINK_BACKEND_PORT")) {
        config.backendPort = parsePort(*port);
    }
    if (auto caFile = environment("FERRYLINK_BACKEND_CA")) {
        config.backendCaFile = *caFile;
    }
    if (auto directory = environment("FERRYLINK_DATA_DIR")) {
        config.dataDirectory = *directory;
    }
    return config;
}

std::filesystem::path dataFilePath(const std::filesystem::path& dataDirectory) {
    static constexpr const char* fileName = "Ferrylink.sqlite";
    if (!dataDirectory.empty()) {
        return dataDirectory / fileName;
    }
    if (auto xdg = environment("XDG_DATA_HOME")) {
        return std::filesystem::path(*xdg) / "ferrylink" / fileName;
    }
    if (auto home = environment("HOME")) {
        return std::filesystem::path(*home) / ".local" / "share" / "ferrylink" / fileName;
    }
    return {};
}

}  // namespace ferrylink::app
