#pragma once

#include <span>
#include <string_view>

namespace ferrylink::app {

// One file of the page, compiled into the program.
struct PageAsset {
    std::string_view path;  // from the page's root, with a leading "/"
    std::string_view contentType;
    std::string_view bytes;
};

// Every file under app/web/page, by path.
std::span<const PageAsset> pageAssets();

// The file at exactly this path, or nullptr.
const PageAsset* findPageAsset(std::string_view path);

}  // namespace ferrylink::app
