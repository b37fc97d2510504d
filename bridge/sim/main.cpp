// ferrylink-simconsole: plays one Bedrock console against a bridge on this
// machine and tells where it was sent. Exit status 0 for a clean join that
// ended in a TransferPacket, 1 otherwise.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

#include "bridge/sim/simulated_console.h"

int main(int argc, char** argv) {
    ferrylink::sim::ConsoleOptions options;
    int raknetVersion = 0;
    int64_t timeoutMs = options.timeout.count();
    std::string bundle;

    CLI::App app{"Joins a bridge as a simulated console and reports the transfer."};
    app.set_version_flag("--version", "ferrylink-simconsole " FERRYLINK_VERSION);
    app.add_option("--host", options.host, "Address of the bridge (loopback)")->capture_default_str();
    app.add_option("--port", options.port, "UDP port of the bridge")->capture_default_str()->check(CLI::Range(1, 65535));
    app.add_option("--protocol", options.protocol, "Game protocol the console claims")->capture_default_str();
    app.add_option("--raknet", raknetVersion, "RakNet protocol version, 10 or 11 (default: as consoles of the protocol)")
        ->check(CLI::IsMember({10, 11}));
    app.add_option("--timeout", timeoutMs, "Milliseconds for the whole join")->capture_default_str()->check(CLI::PositiveNumber);
    app.add_option("--name", options.displayName, "Display name in the login")->capture_default_str();
    app.add_option("--bundle", bundle, "Folder of the resource bundle to check tables against");
    CLI11_PARSE(app, argc, argv);

    if (raknetVersion != 0) {
        options.raknetVersion = static_cast<uint8_t>(raknetVersion);
    }
    options.timeout = std::chrono::milliseconds(timeoutMs);
    options.bundleFolder = bundle;

    auto report = ferrylink::sim::SimulatedConsole(options).join();
    if (!report.advert.empty()) {
        std::cout << "Advert: " << report.advert << "\n";
    }
    for (const auto& name : report.received) {
        std::cout << "Received " << name << "\n";
    }
    if (report.disconnectMessage) {
        std::cout << "Disconnected: " << *report.disconnectMessage << "\n";
    }
    if (report.transferAddress) {
        std::cout << "Transfer: " << *report.transferAddress << ":" << *report.transferPort << "\n";
    }
    for (const auto& problem : report.problems) {
        std::cerr << "Problem: " << problem << "\n";
    }
    return report.transferred() && report.clean() ? 0 : 1;
}
