#pragma once

#include <string>
#include <vector>

#include "app/observable.h"
#include "raknet/printer.h"

namespace ferrylink::app {

// The console the app hands to the bridge. The app shows no console: what
// the user sees of a run is the form's status line, so every line printed
// here is dropped.
class Output : public raknet::Printer {
public:
    // Written only with the empty list; nothing reads it.
    Observable<std::vector<std::string>> consoleOutput;

    // From any thread. Queues an empty block on the main queue and does
    // nothing else: the line reaches neither consoleOutput nor a log.
    void print(const std::string& text) override;
};

}  // namespace ferrylink::app
