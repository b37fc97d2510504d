#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/observable.h"
#include "raknet/printer.h"

namespace ferrylink::app {

// The console the app hands to the bridge. The app shows no console: what
// the user sees of a run is the form's status line, so every line printed
// here is dropped, unless the host of the app asked for them (`echo`).
class Output : public raknet::Printer {
public:
    explicit Output(std::shared_ptr<raknet::Printer> echo = nullptr) : echo_(std::move(echo)) {}

    // Written only with the empty list; nothing reads it.
    Observable<std::vector<std::string>> consoleOutput;

    // From any thread. Queues a block on the main queue that hands the line
    // to the echo, if any: it reaches neither consoleOutput nor a screen.
    void print(const std::string& text) override;

private:
    std::shared_ptr<raknet::Printer> echo_;
};

}  // namespace ferrylink::app
