#include "backend/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "backend/records.h"
#include "backend/serve_command.h"
#include "backend/store.h"

namespace ferrylink::backend {
namespace {

constexpr const char* kProgram = "ferrylink-backend";
constexpr const char* kDefaultDatabase = "ferrylink-backend.db";

// Wrong input that the parser can't see, found once the arguments are read.
class BadArguments : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A record named on the command line that the store doesn't have.
class NotFound : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::int64_t nowMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool hasSpace(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); });
}

bool hasUpper(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return std::isupper(static_cast<unsigned char>(c)); });
}

// The app sends this text as the port of its form, so it must be one.
const CLI::Validator kPortText(
    [](std::string& value) -> std::string {
        const bool digits = !value.empty() && value.size() <= 5 &&
                            std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
        if (!digits || std::stoi(value) < 1 || std::stoi(value) > 65535) {
            return value + " is not a port number (1-65535)";
        }
        return {};
    },
    "PORT");

const CLI::Validator kHost(
    [](std::string& value) -> std::string {
        if (value.empty() || hasSpace(value)) {
            return "'" + value + "' is not a host name or address";
        }
        return {};
    },
    "HOST");

const CLI::Validator kNotEmpty(
    [](std::string& value) -> std::string { return value.empty() ? "must not be empty" : std::string(); }, "TEXT");

// Human listings are one record a line, fields separated by tabs; a line
// break inside a field would split the record, so it is shown escaped.
std::string oneLine(const std::string& text) {
    std::string line;
    for (char c : text) {
        if (c == '\n') {
            line += "\\n";
        } else if (c == '\r') {
            line += "\\r";
        } else if (c == '\t') {
            line += "\\t";
        } else {
            line += c;
        }
    }
    return line;
}

template <typename Record>
void printJsonListing(std::ostream& out, const std::vector<Record>& records) {
    Json array = Json::array();
    for (const Record& record : records) {
        array.push_back(listingJson(record));
    }
    out << dumpJson(array, 2) << '\n';
}

// "ferrylink-backend partner add": the words of the command that failed.
std::string commandPath(const CLI::App& app) {
    std::string path = kProgram;
    const CLI::App* current = &app;
    while (true) {
        const auto selected = current->get_subcommands();
        if (selected.empty()) {
            return path;
        }
        current = selected.front();
        path += " " + current->get_name();
    }
}

void addPartnerOptions(CLI::App* command, PartneredServer& server, bool required) {
    auto* ip = command->add_option("--ip", server.ip, "Host name or address that the app puts in its form")
                   ->check(kHost);
    auto* title = command->add_option("--title", server.title, "First line of the row")->check(kNotEmpty);
    if (required) {
        ip->required();
        title->required();
    }
    command->add_option("--port", server.port, "Port that the app puts in its form")
        ->check(kPortText)
        ->capture_default_str();
    command->add_option("--subtitle", server.subtitle, "Second line of the row; section-sign codes style it");
    command->add_option("--players", server.players, "Text left of the \"/\"")->capture_default_str();
    command->add_option("--max-players", server.maxPlayers, "Text right of the \"/\"")->capture_default_str();
    command->add_option("--status", server.status, "Online flag carried to the app (on|off)")
        ->capture_default_str();
}

template <typename Value>
std::optional<Value> given(const CLI::App* command, const std::string& option, const Value& value) {
    return command->count(option) > 0 ? std::optional<Value>(value) : std::nullopt;
}

void printPartner(std::ostream& out, const PartneredServer& server) {
    out << server.id << '\t' << (server.status ? "on" : "off") << '\t' << server.ip << ':' << server.port << '\t'
        << server.players << '/' << server.maxPlayers << '\t' << oneLine(server.title) << '\t'
        << oneLine(server.subtitle) << '\n';
}

}  // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CLI::App app("The HTTPS backend of the Ferrylink app: serves the partnered servers, the blocklist and "
                 "messages, and keeps a note of every run the app reports.",
                 kProgram);
    app.require_subcommand(1);

    std::string database = kDefaultDatabase;
    const auto addDatabaseOption = [&database](CLI::App* command) {
        command->add_option("--db", database, "SQLite database file, created when missing")
            ->envname("FERRYLINK_BACKEND_DB")
            ->capture_default_str();
    };
    bool json = false;
    const auto addJsonFlag = [&json](CLI::App* command) {
        command->add_flag("--json", json, "Print the records as a JSON array");
    };

    // serve
    std::string certificate;
    std::string privateKey;
    ServeOptions serveOptions;
    auto* serve = app.add_subcommand("serve", "Serve the app's endpoints over HTTPS until SIGINT or SIGTERM");
    serve->add_option("--cert", certificate, "PEM certificate chain of the server")
        ->required()
        ->check(CLI::ExistingFile);
    serve->add_option("--key", privateKey, "PEM private key of the certificate")
        ->required()
        ->check(CLI::ExistingFile);
    serve->add_option("--listen", serveOptions.listenAddress, "Address to listen on")->capture_default_str();
    serve->add_option("--port", serveOptions.port, "TCP port; 0 lets the system choose")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    addDatabaseOption(serve);

    // partner
    auto* partner = app.add_subcommand("partner", "Edit the partnered servers that /getStatus serves");
    partner->require_subcommand(1);
    PartneredServer newPartner;
    auto* partnerAdd = partner->add_subcommand("add", "Add a partnered server at the end of the list");
    addPartnerOptions(partnerAdd, newPartner, true);
    addDatabaseOption(partnerAdd);

    PartneredServer changedPartner;
    std::int64_t partnerId = 0;
    auto* partnerUpdate = partner->add_subcommand("update", "Change fields of a partnered server");
    partnerUpdate->add_option("id", partnerId, "Id shown by 'partner list'")->required();
    addPartnerOptions(partnerUpdate, changedPartner, false);
    addDatabaseOption(partnerUpdate);

    auto* partnerList = partner->add_subcommand("list", "List the partnered servers in the order served");
    addJsonFlag(partnerList);
    addDatabaseOption(partnerList);

    auto* partnerRemove = partner->add_subcommand("remove", "Remove a partnered server");
    partnerRemove->add_option("id", partnerId, "Id shown by 'partner list'")->required();
    addDatabaseOption(partnerRemove);

    // block
    auto* block = app.add_subcommand("block", "Edit the blocklist that /blacklist/all serves");
    block->require_subcommand(1);
    std::vector<std::string> hosts;
    auto* blockAdd = block->add_subcommand("add", "Block hosts; the app compares its lower-cased host exactly");
    blockAdd->add_option("host", hosts, "Host names or addresses")->required()->check(kHost);
    addDatabaseOption(blockAdd);

    auto* blockList = block->add_subcommand("list", "List the blocked hosts");
    addJsonFlag(blockList);
    addDatabaseOption(blockList);

    auto* blockRemove = block->add_subcommand("remove", "Unblock hosts");
    blockRemove->add_option("host", hosts, "Host names or addresses as listed")->required();
    addDatabaseOption(blockRemove);

    // message
    auto* message = app.add_subcommand("message", "Edit the messages that /message/by-version serves");
    message->require_subcommand(1);
    std::string version;
    std::string text;
    std::int64_t messageId = 0;
    auto* messageAdd = message->add_subcommand("add", "Add a message for one app version");
    messageAdd->add_option("--version", version, "App version that gets the message, e.g. 1.19.50")
        ->required()
        ->check(kNotEmpty);
    messageAdd->add_option("text", text, "The message; the app shows it as an alert")->required()->check(kNotEmpty);
    addDatabaseOption(messageAdd);

    auto* messageList = message->add_subcommand("list", "List messages, newest (served first) first");
    messageList->add_option("--version", version, "Only those for this app version");
    addJsonFlag(messageList);
    addDatabaseOption(messageList);

    auto* messageRemove = message->add_subcommand("remove", "Remove a message");
    messageRemove->add_option("id", messageId, "Id shown by 'message list'")->required();
    addDatabaseOption(messageRemove);

    // log
    auto* log = app.add_subcommand("log", "Read the runs that the app reported on /postLog");
    log->require_subcommand(1);
    std::size_t limit = 0;
    auto* logList = log->add_subcommand("list", "List reported runs, oldest first");
    logList->add_option("--limit", limit, "Only the newest N")->check(CLI::PositiveNumber);
    addJsonFlag(logList);
    addDatabaseOption(logList);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error, out, err);
        }
        err << commandPath(app) << ": " << error.what() << " (see --help)\n";
        return kExitBadArguments;
    }

    if (*serve) {
        serveOptions.certificate = certificate;
        serveOptions.privateKey = privateKey;
        serveOptions.database = database;
        return backend::serve(serveOptions, out, err);
    }

    try {
        // Checked before the store is opened, so a mistyped command leaves
        // no database file behind.
        PartnerChanges changes;
        if (*partnerUpdate) {
            changes.status = given(partnerUpdate, "--status", changedPartner.status);
            changes.ip = given(partnerUpdate, "--ip", changedPartner.ip);
            changes.port = given(partnerUpdate, "--port", changedPartner.port);
            changes.title = given(partnerUpdate, "--title", changedPartner.title);
            changes.subtitle = given(partnerUpdate, "--subtitle", changedPartner.subtitle);
            changes.players = given(partnerUpdate, "--players", changedPartner.players);
            changes.maxPlayers = given(partnerUpdate, "--max-players", changedPartner.maxPlayers);
            if (!changes.status && !changes.ip && !changes.port && !changes.title && !changes.subtitle &&
                !changes.players && !changes.maxPlayers) {
                throw BadArguments("nothing to change: give at least one of --ip --port --title --subtitle "
                                   "--players --max-players --status");
            }
        }

        Store store(database);

        if (*partnerAdd) {
            const PartneredServer added = store.addPartner(newPartner);
            out << "added partnered server " << added.id << '\n';
        } else if (*partnerUpdate) {
            if (!store.updatePartner(partnerId, changes)) {
                throw NotFound("no partnered server with id " + std::to_string(partnerId));
            }
            out << "updated partnered server " << partnerId << '\n';
        } else if (*partnerList) {
            const auto servers = store.partners();
            if (json) {
                printJsonListing(out, servers);
            } else {
                for (const auto& server : servers) {
                    printPartner(out, server);
                }
            }
        } else if (*partnerRemove) {
            if (!store.removePartner(partnerId)) {
                throw NotFound("no partnered server with id " + std::to_string(partnerId));
            }
            out << "removed partnered server " << partnerId << '\n';
        } else if (*blockAdd) {
            for (const std::string& host : hosts) {
                if (hasUpper(host)) {
                    err << commandPath(app) << ": warning: the app compares lower-case hosts, so '" << host
                        << "' never matches\n";
                }
                out << (store.addBlocked(host, nowMilliseconds()) ? "blocked " : "already blocked ") << host
                    << '\n';
            }
        } else if (*blockList) {
            const auto servers = store.blocked();
            if (json) {
                printJsonListing(out, servers);
            } else {
                for (const auto& server : servers) {
                    out << server.ip << '\t' << formatUtcTimestamp(server.addedAtMs) << '\n';
                }
            }
        } else if (*blockRemove) {
            std::vector<std::string> missing;
            for (const std::string& host : hosts) {
                if (store.removeBlocked(host)) {
                    out << "unblocked " << host << '\n';
                } else {
                    missing.push_back(host);
                }
            }
            if (!missing.empty()) {
                std::string names;
                for (const auto& host : missing) {
                    names += (names.empty() ? "" : ", ") + host;
                }
                throw NotFound("not blocked: " + names);
            }
        } else if (*messageAdd) {
            const Message added = store.addMessage(version, text);
            out << "added message " << added.id << " for version " << added.version << '\n';
        } else if (*messageList) {
            const auto messages = store.messages(given(messageList, "--version", version));
            if (json) {
                printJsonListing(out, messages);
            } else {
                for (const auto& entry : messages) {
                    out << entry.id << '\t' << entry.version << '\t' << oneLine(entry.message) << '\n';
                }
            }
        } else if (*messageRemove) {
            if (!store.removeMessage(messageId)) {
                throw NotFound("no message with id " + std::to_string(messageId));
            }
            out << "removed message " << messageId << '\n';
        } else if (*logList) {
            const auto entries = store.logEntries(limit > 0 ? std::optional<std::size_t>(limit) : std::nullopt);
            if (json) {
                printJsonListing(out, entries);
            } else {
                for (const auto& entry : entries) {
                    out << formatUtcTimestamp(entry.receivedAtMs) << '\t' << entry.remoteAddress << '\t'
                        << oneLine(entry.serverIp) << ':' << oneLine(entry.serverPort) << '\t'
                        << oneLine(entry.clientIp) << '\n';
                }
            }
        }
        return kExitSuccess;
    } catch (const BadArguments& error) {
        err << commandPath(app) << ": " << error.what() << " (see --help)\n";
        return kExitBadArguments;
    } catch (const std::exception& error) {
        err << commandPath(app) << ": " << error.what() << '\n';
        return kExitFailure;
    }
}

}  // namespace ferrylink::backend
