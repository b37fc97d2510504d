#include "bridge/console_lines.h"

#include <array>
#include <utility>

namespace ferrylink::bridge {

namespace {

// Every line the bridge and its transport print, by its fixed beginning.
// Error texts come from the system and have no fixed form, so a line that
// matches nothing here counts as an error and is never hidden.
constexpr std::array<std::pair<std::string_view, ConsoleLineKind>, 25> kLineStarts{{
    {"Server running and listening on ", ConsoleLineKind::start},
    {"Server will transfer to ", ConsoleLineKind::start},
    {"Listening on UDP ", ConsoleLineKind::start},
    {"Server shutting down!", ConsoleLineKind::stop},
    {"New connection: ", ConsoleLineKind::join},
    {"Player inizialized ", ConsoleLineKind::join},
    {"Connection closed ", ConsoleLineKind::join},
    {"IP ", ConsoleLineKind::handOver},
    {"unavaliable: ", ConsoleLineKind::error},
    {"Error ", ConsoleLineKind::error},
    {"error in LoginPacket decoding!", ConsoleLineKind::error},
    {"Unconnected: ", ConsoleLineKind::traffic},
    {"RakNet protocol: ", ConsoleLineKind::traffic},
    {"IncompatibleProtocolVersion", ConsoleLineKind::traffic},
    {"OpenConnectionReply1", ConsoleLineKind::traffic},
    {"OpenConnectionReply2", ConsoleLineKind::traffic},
    {"Removed: ", ConsoleLineKind::traffic},
    {"packet: ", ConsoleLineKind::traffic},
    {"con: ", ConsoleLineKind::traffic},
    {"packetId: ", ConsoleLineKind::traffic},
    {"Protocol version: ", ConsoleLineKind::traffic},
    {"RequestNetworkSettingsPacket", ConsoleLineKind::traffic},
    {"ResourcePackResponsePacket status: ", ConsoleLineKind::traffic},
    {"Unknown packet ", ConsoleLineKind::traffic},
    {"Bytes: ", ConsoleLineKind::traffic},
}};

}  // namespace

ConsoleLineKind consoleLineKind(std::string_view line) {
    // "<name> disconnected due to "<reason>"!" first: the name is the
    // console's own and may start like any other line.
    if (line.ends_with("\"!") && line.find(" disconnected due to \"") != std::string_view::npos) {
        return ConsoleLineKind::join;
    }
    for (const auto& [start, kind] : kLineStarts) {
        if (line.starts_with(start)) {
            return kind;
        }
    }
    return ConsoleLineKind::error;
}

std::string_view consoleLineKindName(ConsoleLineKind kind) {
    switch (kind) {
        case ConsoleLineKind::start:
            return "start";
        case ConsoleLineKind::stop:
            return "stop";
        case ConsoleLineKind::join:
            return "join";
        case ConsoleLineKind::handOver:
            return "hand-over";
        case ConsoleLineKind::error:
            return "error";
        case ConsoleLineKind::traffic:
            return "traffic";
    }
    return "error";
}

void QuietPrinter::print(const std::string& text) {
    if (consoleLineKind(text) != ConsoleLineKind::traffic) {
        next_->print(text);
    }
}

}  // namespace ferrylink::bridge
