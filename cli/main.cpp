// ferrylink: makes a Bedrock server show up as a LAN game for consoles.
#include <CLI/CLI.hpp>

#include <charconv>
#include <iostream>
#include <string>

#include "cli/commands.h"

namespace {

using namespace ferrylink::cli;

// Ports are taken as text so that "abc" and "70000" get the same clear message.
int parsePort(const std::string& text, const std::string& what) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > 65535) {
        throw CLI::ValidationError(what, "'" + text + "' is not a port number (1-65535)");
    }
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Ferrylink: makes a Bedrock server show up as a LAN game, so consoles can join it."};
    app.require_subcommand(1);
    app.set_version_flag("--version", "ferrylink 0.1.0");

    RunOptions run;
    std::string runPort = "19132";
    std::string listenPort = "19132";
    auto* runCommand = app.add_subcommand("run", "Run the bridge headless: consoles on this network that join the "
                                                 "advertised world are sent on to HOST:PORT. Stops on Ctrl-C.");
    runCommand->add_option("HOST", run.host, "The real server: a name or an address")->required();
    runCommand->add_option("PORT", runPort, "Its UDP port")->capture_default_str();
    runCommand->add_flag("--one-transfer", run.oneTransfer, "Stop 15 seconds after the first console has left");
    runCommand->add_option("--listen-port", listenPort, "Local UDP port to answer consoles on")->capture_default_str();
    runCommand->add_option("--listen-host", run.listenHost, "Local address to bind")->capture_default_str();

    PingOptions ping;
    std::string pingPort = "19132";
    auto* pingCommand = app.add_subcommand("ping", "Ask a server for its advert and print it.");
    pingCommand->add_option("HOST", ping.host, "The server: a name or an address")->required();
    pingCommand->add_option("PORT", pingPort, "Its UDP port")->capture_default_str();

    try {
        app.parse(argc, argv);
        if (runCommand->parsed()) {
            run.port = parsePort(runPort, "PORT");
            run.listenPort = parsePort(listenPort, "--listen-port");
        } else if (pingCommand->parsed()) {
            ping.port = parsePort(pingPort, "PORT");
        }
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& error) {
        std::cerr << "ferrylink: " << error.what() << " (see ferrylink --help)" << std::endl;
        return 2;
    }

    if (runCommand->parsed()) {
        return runBridge(run);
    }
    return pingServer(ping);
}
