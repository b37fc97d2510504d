#include "bridge/resource_bundle.h"

#include <dlfcn.h>

#include "foundation/fatal.h"

#ifndef FERRYLINK_DATA_FROM_BINDIR
#define FERRYLINK_DATA_FROM_BINDIR ""
#endif

namespace ferrylink::bridge {

namespace fs = std::filesystem;

namespace {

std::optional<fs::path> folderOfThisBinary() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&folderOfThisBinary), &info) == 0 || info.dli_fname == nullptr) {
        return std::nullopt;
    }
    std::error_code error;
    fs::path binary = fs::canonical(info.dli_fname, error);
    if (error) {
        return std::nullopt;
    }
    return binary.parent_path();
}

std::optional<fs::path> folderOfExecutable() {
    std::error_code error;
    fs::path executable = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        return std::nullopt;
    }
    return executable.parent_path();
}

}  // namespace

std::vector<fs::path> ResourceBundle::candidateFolders() {
    std::vector<fs::path> candidates;
    auto executable = folderOfExecutable();
    // Found from the program rather than named outright, so that an
    // installed tree works wherever it was unpacked.
    if (std::string_view installed = FERRYLINK_DATA_FROM_BINDIR; executable && !installed.empty()) {
        candidates.push_back((*executable / installed).lexically_normal());
    }
    if (auto library = folderOfThisBinary()) {
        candidates.push_back(*library);
    }
    if (executable) {
        candidates.push_back(*executable);
    }
    return candidates;
}

std::optional<ResourceBundle> ResourceBundle::find(const std::vector<fs::path>& candidates) {
    for (const auto& candidate : candidates) {
        std::error_code error;
        fs::path bundle = candidate / bundleName;
        if (fs::is_directory(bundle, error)) {
            return ResourceBundle(bundle);
        }
    }
    return std::nullopt;
}

const ResourceBundle& ResourceBundle::main() {
    static const ResourceBundle bundle = [] {
        auto found = find(candidateFolders());
        if (!found) {
            foundation::fatalFault("unable to find bundle named portalhop_PortalHop");
        }
        return *found;
    }();
    return bundle;
}

std::optional<fs::path> ResourceBundle::pathForResource(std::string_view name, std::string_view extension) const {
    fs::path file = folder_ / (std::string(name) + "." + std::string(extension));
    std::error_code error;
    if (!fs::exists(file, error)) {
        return std::nullopt;
    }
    return file;
}

}  // namespace ferrylink::bridge
