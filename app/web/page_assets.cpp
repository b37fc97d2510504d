#include "app/web/page_assets.h"

namespace ferrylink::app {

const PageAsset* findPageAsset(std::string_view path) {
    for (const auto& asset : pageAssets()) {
        if (asset.path == path) {
            return &asset;
        }
    }
    return nullptr;
}

}  // namespace ferrylink::app
