#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ferrylink::bridge {

// The folder of files that ship with the bridge, found by name in the first of
// three places that has it:
//   1. the installed data folder, <prefix>/share/ferrylink beside the
//      executable's <prefix>/bin,
//   2. the folder of the binary that holds this code,
//   3. the folder of the running executable (a build tree's bin/ has a copy).
// The search runs once per process and its outcome is kept; finding nothing
// ends the process with "unable to find bundle named portalhop_PortalHop".
class ResourceBundle {
public:
    static constexpr std::string_view bundleName = "portalhop_PortalHop.bundle";

    // The bundle of this process.
    static const ResourceBundle& main();
    // The first candidate folder holding a bundle of that name, if any.
    static std::optional<ResourceBundle> find(const std::vector<std::filesystem::path>& candidates);
    // The three candidates in search order; absent ones are left out.
    static std::vector<std::filesystem::path> candidateFolders();

    explicit ResourceBundle(std::filesystem::path folder) : folder_(std::move(folder)) {}

    const std::filesystem::path& folder() const { return folder_; }
    // The file `name`.`extension` when the bundle has it.
    std::optional<std::filesystem::path> pathForResource(std::string_view name, std::string_view extension) const;

private:
    std::filesystem::path folder_;
};

}  // namespace ferrylink::bridge
