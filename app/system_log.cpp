#include "app/system_log.h"

#include <syslog.h>
#include <unistd.h>

#include <mutex>
#include <string>

namespace ferrylink::app {

namespace {
std::mutex tapMutex;
std::function<void(std::string_view)> currentTap;
}  // namespace

void systemLog(std::string_view line) {
    std::string text(line);
    ::syslog(LOG_NOTICE, "%s", text.c_str());
    if (::isatty(STDERR_FILENO) == 1) {
        text += '\n';
        ssize_t ignored = ::write(STDERR_FILENO, text.data(), text.size());
        (void)ignored;
        text.pop_back();
    }
    // The tap runs under the lock, so that removing it waits for a call
    // under way and whoever set it may go as soon as it is removed.
    std::lock_guard lock(tapMutex);
    if (currentTap) {
        currentTap(text);
    }
}

void setSystemLogTap(std::function<void(std::string_view)> tap) {
    std::lock_guard lock(tapMutex);
    currentTap = std::move(tap);
}

}  // namespace ferrylink::app
