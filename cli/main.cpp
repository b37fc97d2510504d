// ferrylink: makes a Bedrock server show up as a LAN game for consoles.
#include <CLI/CLI.hpp>

#include <charconv>
#include <iostream>
#include <string>

#include "app/web/listen_address.h"
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
    CLI::App app{"Ferrylink: makes a Bedrock server show up as a LAN game, so consoles can join it."};
    app.require_subcommand(1);
    app.set_version_flag("--version", "ferrylink 0.1.0");

    RunOptions run;
    std::string runPort = "19132";
    std::string listenPort = "19132";
    auto* runCommand = app.add_subcommand("run", "Run the bridge headless: consoles on this network that join the "
                                                 "advertised world are sent on to HOST:PORT. Stops on Ctrl-C.");
    runCommand->add_option("HOST", run.host, "The real server: a name or an address")->required()->check(kHost);
    runCommand->add_option("PORT", runPort, "Its UDP port")->capture_default_str();
    runCommand->add_flag("--one-transfer", run.oneTransfer, "Stop 15 seconds after the first console has left");
    runCommand->add_flag("--quiet", run.quiet, "Print only start, stop, join, hand-over and error lines, "
                                                "not a line per datagram");
    runCommand->add_option("--listen-port", listenPort, "Local UDP port to answer consoles on")->capture_default_str();
    runCommand->add_option("--listen-host", run.listenHost, "Local address to bind")->capture_default_str();

    PingOptions ping;
    std::string pingPort = "19132";
    auto* pingCommand = app.add_subcommand("ping", "Ask a server for its advert and print it.");
    pingCommand->add_option("HOST", ping.host, "The server: a name or an address")->required();
    pingCommand->add_option("PORT", pingPort, "Its UDP port")->capture_default_str();

    AppOptions appOptions;
    std::string listen = "127.0.0.1:8080";
    std::string backendPort;
    std::string bridgePort;
    auto* appCommand = app.add_subcommand(
        "app", "Serve the app as a web page: open the printed address in a browser. The bridge runs while a page "
               "of the app is open and visible. Stops on Ctrl-C.");
    appCommand->add_option("--listen", listen, "HOST:PORT to serve the page on ([::]:PORT for IPv6); an address "
                                               "that is not loopback asks for an access token")
        ->capture_default_str();
    appCommand->add_option("--backend-host", appOptions.backendHost, "Host of the HTTPS backend (env FERRYLINK_BACKEND_HOST)");
    appCommand->add_option("--backend-port", backendPort, "Its port (env FERRYLINK_BACKEND_PORT, else 8443)");
    appCommand->add_option("--backend-ca", appOptions.backendCaFile,
                           "PEM file of CA certificates to trust for the backend instead of the system's "
                           "(env FERRYLINK_BACKEND_CA)")
        ->check(CLI::ExistingFile);
    appCommand->add_option("--data-dir", appOptions.dataDirectory,
                           "Folder of the settings and favourites (env FERRYLINK_DATA_DIR, else "
                           "$XDG_DATA_HOME/ferrylink or ~/.local/share/ferrylink)");
    appCommand->add_option("--bridge-host", appOptions.bridgeHost, "Local address the bridge answers consoles on (default 0.0.0.0)");
    appCommand->add_option("--bridge-port", bridgePort, "Local UDP port the bridge answers consoles on (default 19132)");
    appCommand->add_flag("--quiet", appOptions.quiet, "Print no line per run started or stopped, console joined or "
                                                      "handed over, and failure");

    try {
        app.parse(argc, argv);
        if (runCommand->parsed()) {
            run.port = parsePort(runPort, "PORT");
            run.listenPort = parsePort(listenPort, "--listen-port");
        } else if (pingCommand->parsed()) {
            ping.port = parsePort(pingPort, "PORT");
        } else if (appCommand->parsed()) {
            auto address = ferrylink::app::parseListenAddress(listen);
            if (!address) {
                throw CLI::ValidationError("--listen", "'" + listen + "' is not HOST:PORT (port 0-65535)");
            }
            appOptions.listenHost = address->host;
            appOptions.listenPort = address->port;
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
        return runApp(appOptions);
    }
    return pingServer(ping);
}
