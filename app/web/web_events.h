#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/app_core.h"

namespace ferrylink::app {

// The models as the page's event stream carries them, each as the whole
// value of one event. Main queue only, since they read models.
nlohmann::json sceneEventData(ScenePhase phase);
nlohmann::json runningEventData(const std::shared_ptr<BridgeServer>& server, const std::string& serverState);
nlohmann::json formEventData(ConectionForm& form);
nlohmann::json favouritesEventData(const std::vector<ServerRow>& rows);
nlohmann::json serverRowData(const ServerRow& row);
nlohmann::json featuredEventData(bool featured, const std::vector<PartneredServer>& servers);
nlohmann::json messageEventData(const std::optional<PendingMessage>& message);

// One Server-Sent Event: its name, one line of compact JSON, a blank line.
std::string formatEvent(std::string_view name, const nlohmann::json& data);

}  // namespace ferrylink::app
