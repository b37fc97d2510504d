// `ferrylink app` in the program `ferrylink`: the app lives in a program of
// its own, ferrylink-app, so that `ferrylink run` loads no library that only
// the app uses. This hands the command line over to it.

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>

#include "cli/commands.h"

#ifndef FERRYLINK_APP_FROM_BINDIR
#define FERRYLINK_APP_FROM_BINDIR "../libexec/ferrylink"
#endif

namespace ferrylink::cli {

int runApp(const AppOptions&, char** commandLine) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    // Beside this program in a build, in libexec/ferrylink once installed.
    std::string looked;
    for (const fs::path& candidate : {folder / "ferrylink-app", folder / FERRYLINK_APP_FROM_BINDIR / "ferrylink-app"}) {
        fs::path program = candidate.lexically_normal();
        ::execv(program.c_str(), commandLine);
        looked += (looked.empty() ? "" : ", ") + program.string() + " (" + std::strerror(errno) + ")";
    }
    std::cerr << "ferrylink: the app's program is missing: " << looked << std::endl;
    return 1;
}

}  // namespace ferrylink::cli
