#include "app/web/web_events.h"

#include "app/styles.h"
#include "app/web/json_http.h"

namespace ferrylink::app {

using nlohmann::json;

namespace {

json optionalText(const std::optional<std::string>& text) { return text ? json(*text) : json(nullptr); }

}  // namespace

json sceneEventData(ScenePhase phase) { return {{"phase", std::string(scenePhaseName(phase))}}; }

json runningEventData(const std::shared_ptr<BridgeServer>& server, const std::string& serverState) {
    json target = nullptr;
    if (server) {
        target = {{"transferHost", server->transferHost()}, {"transferPort", server->transferPort()}};
    }
    return {{"server", target}, {"serverState", serverState}};
}

json formEventData(ConectionForm& form) {
    return {{"ip", form.info().ip.get()},
            {"port", form.info().port.get()},
            {"emptyIpAlert", form.emptyIpAlert.get()},
            {"hypixelAlert", form.hypixelAlert.get()},
            {"invalidIp", form.invalidIp.get()},
            {"bindFailedAlert", form.bindFailedAlert.get()},
            {"bindFailure", form.bindFailure.get()}};
}

json serverRowData(const ServerRow& row) {
    return {{"id", std::to_string(row.id)}, {"ip", optionalText(row.ip)}, {"port", optionalText(row.port)}};
}

json favouritesEventData(const std::vector<ServerRow>& rows) {
    json servers = json::array();
    for (const auto& row : rows) {
        servers.push_back(serverRowData(row));
    }
    return {{"servers", servers}};
}

json featuredEventData(bool featured, const std::vector<PartneredServer>& servers) {
    json rows = json::array();
    for (const auto& server : servers) {
        json runs = json::array();
        for (const auto& run : styledText(server.subtitle)) {
            auto [red, green, blue] = run.color.rgb255();
            runs.push_back({{"text", run.text}, {"style", std::string(styleName(run.style))}, {"color", {red, green, blue}}});
        }
        rows.push_back({{"status", server.status},
                        {"ip", server.ip},
                        {"port", server.port},
                        {"title", server.title},
                        {"subtitleRuns", runs},
                        {"players", server.players},
                        {"maxPlayers", server.maxPlayers}});
    }
    return {{"featured", featured}, {"servers", rows}};
}

json messageEventData(const std::optional<PendingMessage>& message) {
    if (!message) {
        return {{"message", nullptr}};
    }
    return {{"message",
             {{"id", message->message.id},
              {"version", message->message.version},
              {"message", message->message.message},
              {"key", message->key}}}};
}

std::string formatEvent(std::string_view name, const json& data) {
    std::string text = "event: ";
    text += name;
    text += "\ndata: ";
    text += http::compactJson(data);
    text += "\n\n";
    return text;
}

}  // namespace ferrylink::app
