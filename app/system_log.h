#pragma once

#include <functional>
#include <string_view>

namespace ferrylink::app {

// The app's system log: syslog, and standard error too when that is a
// terminal. Network failures of the app end here, never in an alert.
// Safe from any thread.
void systemLog(std::string_view line);

// Also hands every line to `tap` (an empty function removes it, and waits
// for a call of the old one under way). For tests.
void setSystemLogTap(std::function<void(std::string_view)> tap);

}  // namespace ferrylink::app
