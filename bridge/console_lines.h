#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "raknet/printer.h"

namespace ferrylink::bridge {

// What one line of the bridge's console is about. The bridge and its
// transport print plain text; this sorts it after the fact, so that a quiet
// console, a log with time stamps or a filter can tell the few lines a user
// wants from the one-per-datagram chatter.
enum class ConsoleLineKind {
    start,     // where the bridge listens, where it transfers to
    stop,      // the bridge shuts down
    join,      // a console connects, logs in or goes
    handOver,  // a console is sent on to the real server
    error,     // something failed; also any line the bridge doesn't know
    traffic,   // one line per datagram, packet or handshake step
};

ConsoleLineKind consoleLineKind(std::string_view line);
std::string_view consoleLineKindName(ConsoleLineKind kind);

// Passes every line but traffic on to `next`: what `--quiet` shows.
class QuietPrinter : public raknet::Printer {
public:
    explicit QuietPrinter(std::shared_ptr<raknet::Printer> next) : next_(std::move(next)) {}
    void print(const std::string& text) override;

private:
    std::shared_ptr<raknet::Printer> next_;
};

}  // namespace ferrylink::bridge
