#include "cli/world_data.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "bridge/resource_bundle.h"
#include "bridge/world_resources.h"

namespace ferrylink::cli {

void checkWorldData() {
    auto candidates = bridge::ResourceBundle::candidateFolders();
    auto bundle = bridge::ResourceBundle::find(candidates);
    std::string missing;
    if (bundle) {
        for (auto resource : {bridge::WorldResource::biomeDefinitions, bridge::WorldResource::entityIdentifiers,
                              bridge::WorldResource::requiredBlockStates}) {
            if (!bundle->pathForResource(bridge::resourceName(resource), "nbt")) {
                missing += std::string(missing.empty() ? "" : ", ") + std::string(bridge::resourceName(resource)) + ".nbt";
            }
        }
        if (missing.empty()) {
            return;
        }
        throw std::runtime_error("the world-data folder " + bundle->folder().string() + " lacks " + missing);
    }
    std::string looked;
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (std::find(candidates.begin(), candidates.begin() + i, candidates[i]) == candidates.begin() + i) {
            looked += (looked.empty() ? "" : ", ") + candidates[i].string();
        }
    }
    throw std::runtime_error("the world-data folder " + std::string(bridge::ResourceBundle::bundleName) +
                             " is missing; looked in " + looked + " (build the ferrylink_resources target, or "
                             "install ferrylink)");
}

}  // namespace ferrylink::cli
