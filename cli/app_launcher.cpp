// `ferrylink app` in the program `ferrylink`: the app lives in a program of
// its own, ferrylink-app, so that `ferrylink run` loads no library that only
// the app uses. This hands the command line over to it.

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "cli/commands.h"

namespace ferrylink::cli {

int runApp(const AppOptions&, char** commandLine) {
    // Beside this program, in a build as once installed.
    std::error_code error;
    auto program = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "ferrylink-app";
    ::execv(program.c_str(), commandLine);
    std::cerr << "ferrylink: cannot start the app's program " << program.string() << ": " << std::strerror(errno)
              << std::endl;
    return 1;
}

}  // namespace ferrylink::cli
