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

const CLI::Validator kHost(
    [](std::string& value) {
        return value.find_first_not_of(" \t") == std::string::npos ? std::string("must not be empty") : std::string();
    },
    "");

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Ferrylink: makes a Bedrock server show up as a LAN game, so consoles can join it.", "ferrylink"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "ferrylink " FERRYLINK_VERSION);
    app.set_help_all_flag("--help-all", "Print this help message with every command's options and exit");
    // Every option of a command may stand in its section of the file, named
    // as its long option: [run] host = "play.example.net". A typo is an error.
    app.set_config("--config", "", "Read options from this TOML file, one [run], [ping] or [app] section per "
                                   "command; the command line wins");
    app.allow_config_extras(CLI::config_extras_mode::error);

    RunOptions run;
    std::string runPort = "19132";
    std::string listenPort = "19132";
    auto* runCommand = app.add_subcommand("run", "Run the bridge headless: consoles on this network that join the "
                                                 "advertised world are sent on to HOST:PORT. Stops on Ctrl-C.");
    runCommand->add_option("HOST,--host", run.host, "The real server: a name or an address")->required()->check(kHost);
    runCommand->add_option("PORT,--port", runPort, "Its UDP port")->capture_default_str();
    runCommand->add_flag("--one-transfer", run.oneTransfer, "Stop 15 seconds after the first console has left (default: off)");
    runCommand->add_flag("--quiet", run.quiet, "Print only start, stop, join, hand-over and error lines, "
                                                "not a line per datagram (default: off)");
    runCommand->add_option("--listen-port", listenPort, "Local UDP port to answer consoles on; the next one is "
                                                        "tried when it is taken")
        ->capture_default_str();
    runCommand->add_option("--listen-host", run.listenHost, "Local address to bind")->capture_default_str();

    PingOptions ping;
    std::string pingPort = "19132";
    auto* pingCommand = app.add_subcommand("ping", "Ask a server for its advert and print it with the address "
                                                   "asked and the round-trip time.");
    pingCommand->add_option("HOST,--host", ping.host, "The server: a name or an address")->required()->check(kHost);
    pingCommand->add_option("PORT,--port", pingPort, "Its UDP port")->capture_default_str();
    pingCommand->add_option("--timeout", ping.timeoutMs, "Milliseconds to wait for the answer")
        ->capture_default_str()
        ->check(CLI::Range(1, 600000));

    AppOptions appOptions;
    std::string backendPort;
    std::string bridgePort;
    auto* appCommand = app.add_subcommand(
        "app", "Serve the app as a web page: open the printed address in a browser. The bridge runs while a page "
               "of the app is open and visible. Stops on Ctrl-C.");
    appCommand->add_option("--listen", appOptions.listen, "HOST:PORT to serve the page on ([::]:PORT for IPv6); an "
                                                          "address that is not loopback asks for an access token")
        ->capture_default_str();
    appCommand->add_option("--backend-host", appOptions.backendHost,
                           "Host of the HTTPS backend (default: env FERRYLINK_BACKEND_HOST, else the built-in one)");
    appCommand->add_option("--backend-port", backendPort, "Its port (default: env FERRYLINK_BACKEND_PORT, else 8443)");
    appCommand->add_option("--backend-ca", appOptions.backendCaFile,
                           "PEM file of CA certificates to trust for the backend instead of the system's "
                           "(default: env FERRYLINK_BACKEND_CA, else the system's)")
        ->check(CLI::ExistingFile);
    appCommand->add_option("--data-dir", appOptions.dataDirectory,
                           "Folder of the settings and favourites (default: env FERRYLINK_DATA_DIR, else "
                           "$XDG_DATA_HOME/ferrylink or ~/.local/share/ferrylink)");
    appCommand->add_option("--bridge-host", appOptions.bridgeHost,
                           "Local address the bridge answers consoles on (default: 0.0.0.0)");
    appCommand->add_option("--bridge-port", bridgePort, "Local UDP port the bridge answers consoles on (default: 19132)");
    appCommand->add_flag("--quiet", appOptions.quiet, "Print no line per run started or stopped, console joined or "
                                                      "handed over, and failure (default: off)");

    try {
        app.parse(argc, argv);
        if (runCommand->parsed()) {
            run.port = parsePort(runPort, "PORT");
            run.listenPort = parsePort(listenPort, "--listen-port");
        } else if (pingCommand->parsed()) {
            ping.port = parsePort(pingPort, "PORT");
        } else if (appCommand->parsed()) {
            if (!backendPort.empty()) {
                appOptions.backendPort = parsePort(backendPort, "--backend-port");
            }
            if (!bridgePort.empty()) {
                appOptions.bridgePort = parsePort(bridgePort, "--bridge-port");
            }
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
    if (appCommand->parsed()) {
        return runApp(appOptions, argv);
    }
    return pingServer(ping);
}
