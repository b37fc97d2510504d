#include "backend/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
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
    [](std::string& value) -> std::string { return value.empty() ? "must not be empty" : std::string(); }, "");

// A line break or tab inside a field of a human listing would split its
// record, so they are shown escaped.
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

template <typename Value>
std::optional<Value> given(const CLI::App* command, const std::string& option, const Value& value) {
    return command->count(option) > 0 ? std::optional<Value>(value) : std::nullopt;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

// The command's grammar, the values it parses into, and what each leaf
// command does with the store.
class CommandLine {
public:
    CommandLine() : app_(kDescription, kProgram) {
        app_.require_subcommand(1);
        app_.set_version_flag("--version", std::string(kProgram) + " " FERRYLINK_VERSION);
        app_.set_help_all_flag("--help-all", "Print this help message with every command's options and exit");
        // Options of a command may stand in its section of the file, as
        // [serve] port = 8443 or [partner.add] db = "...". A typo is an error.
        app_.set_config("--config", "", "Read options from this TOML file, one section per command; the command "
                                        "line wins");
        app_.allow_config_extras(CLI::config_extras_mode::error);
        defineServe();
        definePartner();
        defineBlock();
        defineMessage();
        defineLog();
    }

    int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0) {
                return app_.exit(error, out, err);  // --help
            }
            err << commandPath(app_) << ": " << error.what() << " (see --help)\n";
            return kExitBadArguments;
        }

        if (*serve_) {
            serveOptions_.certificate = certificate_;
            serveOptions_.privateKey = privateKey_;
            serveOptions_.database = database_;
            return serve(serveOptions_, out, err);
        }

        try {
            // Checked before the store is opened, so a mistyped command
            // leaves no database file behind.
            const PartnerChanges changes = partnerChanges();
            Store store(database_);
            runOnStore(store, changes, out, err);
            return kExitSuccess;
        } catch (const BadArguments& error) {
            err << commandPath(app_) << ": " << error.what() << " (see --help)\n";
            return kExitBadArguments;
        } catch (const std::exception& error) {
            err << commandPath(app_) << ": " << error.what() << '\n';
            return kExitFailure;
        }
    }

private:
    static constexpr const char* kDescription =
        "The HTTPS backend of the Ferrylink app: serves the partnered servers, the blocklist and messages, "
        "and keeps a note of every run the app reports.";

    CLI::App* leaf(CLI::App* group, const std::string& name, const std::string& description) {
        CLI::App* command = group->add_subcommand(name, description);
        command->add_option("--db", database_, "SQLite database file, created when missing")
            ->envname("FERRYLINK_BACKEND_DB")
            ->capture_default_str();
        return command;
    }

    CLI::App* listing(CLI::App* group, const std::string& description) {
        CLI::App* command = leaf(group, "list", description);
        command->add_flag("--json", json_, "Print the records as a JSON array");
        return command;
    }

    CLI::App* group(const std::string& name, const std::string& description) {
        CLI::App* command = app_.add_subcommand(name, description);
        command->require_subcommand(1);
        return command;
    }

    void defineServe() {
        serve_ = leaf(&app_, "serve", "Serve the app's endpoints over HTTPS until SIGINT or SIGTERM");
        serve_->add_option("--cert", certificate_, "PEM certificate chain of the server")
            ->required()
            ->check(CLI::ExistingFile);
        serve_->add_option("--key", privateKey_, "PEM private key of the certificate")
            ->required()
            ->check(CLI::ExistingFile);
        serve_->add_option("--listen", serveOptions_.listenAddress, "Address to listen on")->capture_default_str();
        serve_->add_option("--port", serveOptions_.port, "TCP port; 0 lets the system choose")
            ->check(CLI::Range(0, 65535))
            ->capture_default_str();
    }

    // For `add` (isNew) the host and title are required and the others show
    // their defaults; for `update` every field is optional and has none.
    static void addPartnerFields(CLI::App* command, PartneredServer& server, bool isNew) {
        auto* ip = command->add_option("--ip", server.ip, "Host name or address that the app puts in its form")
                       ->check(kHost);
        auto* title = command->add_option("--title", server.title, "First line of the row")->check(kNotEmpty);
        auto* port = command->add_option("--port", server.port, "Port that the app puts in its form")
                         ->check(kPortText);
        command->add_option("--subtitle", server.subtitle, "Second line of the row; section-sign codes style it");
        auto* players = command->add_option("--players", server.players, "Text left of the \"/\"");
        auto* maxPlayers = command->add_option("--max-players", server.maxPlayers, "Text right of the \"/\"");
        auto* status = command->add_option("--status", server.status, "Online flag carried to the app")
                           ->type_name("on|off");
        if (isNew) {
            ip->required();
            title->required();
            port->capture_default_str();
            players->capture_default_str();
            maxPlayers->capture_default_str();
            status->default_str(server.status ? "on" : "off");
        }
    }

    void definePartner() {
        CLI::App* partner = group("partner", "Edit the partnered servers that /getStatus serves");
        partnerAdd_ = leaf(partner, "add", "Add a partnered server at the end of the list");
        addPartnerFields(partnerAdd_, newPartner_, true);
        partnerUpdate_ = leaf(partner, "update", "Change fields of a partnered server");
        partnerUpdate_->add_option("id", id_, "Id shown by 'partner list'")->required();
        addPartnerFields(partnerUpdate_, changedPartner_, false);
        partnerList_ = listing(partner, "List the partnered servers in the order served");
        partnerRemove_ = leaf(partner, "remove", "Remove a partnered server");
        partnerRemove_->add_option("id", id_, "Id shown by 'partner list'")->required();
    }

    void defineBlock() {
        CLI::App* block = group("block", "Edit the blocklist that /blacklist/all serves");
        blockAdd_ = leaf(block, "add", "Block hosts; the app compares its lower-cased host exactly");
        blockAdd_->add_option("host", hosts_, "Host names or addresses")->required()->check(kHost);
        blockList_ = listing(block, "List the blocked hosts");
        blockRemove_ = leaf(block, "remove", "Unblock hosts");
        blockRemove_->add_option("host", hosts_, "Host names or addresses as listed")->required();
    }

    void defineMessage() {
        CLI::App* message = group("message", "Edit the messages that /message/by-version serves");
        messageAdd_ = leaf(message, "add", "Add a message for one app version");
        messageAdd_->add_option("--version", version_, "App version that gets the message, e.g. 1.19.50")
            ->required()
            ->check(kNotEmpty);
        messageAdd_->add_option("text", text_, "The message; the app shows it as an alert")
            ->required()
            ->check(kNotEmpty);
        messageList_ = listing(message, "List messages, newest (the one the app shows) first");
        messageList_->add_option("--version", version_, "Only those for this app version");
        messageRemove_ = leaf(message, "remove", "Remove a message");
        messageRemove_->add_option("id", id_, "Id shown by 'message list'")->required();
    }

    void defineLog() {
        CLI::App* log = group("log", "Read the runs that the app reported on /postLog");
        logList_ = listing(log, "List reported runs, oldest first");
        logList_->add_option("--limit", limit_, "Only the newest N")->check(CLI::PositiveNumber);
    }

    PartnerChanges partnerChanges() const {
        PartnerChanges changes;
        if (!*partnerUpdate_) {
            return changes;
        }
        changes.status = given(partnerUpdate_, "--status", changedPartner_.status);
        changes.ip = given(partnerUpdate_, "--ip", changedPartner_.ip);
        changes.port = given(partnerUpdate_, "--port", changedPartner_.port);
        changes.title = given(partnerUpdate_, "--title", changedPartner_.title);
        changes.subtitle = given(partnerUpdate_, "--subtitle", changedPartner_.subtitle);
        changes.players = given(partnerUpdate_, "--players", changedPartner_.players);
        changes.maxPlayers = given(partnerUpdate_, "--max-players", changedPartner_.maxPlayers);
        if (!changes.status && !changes.ip && !changes.port && !changes.title && !changes.subtitle &&
            !changes.players && !changes.maxPlayers) {
            throw BadArguments("nothing to change: give at least one of --ip --port --title --subtitle "
                               "--players --max-players --status");
        }
        return changes;
    }

    void runOnStore(Store& store, const PartnerChanges& changes, std::ostream& out, std::ostream& err) const {
        if (*partnerAdd_) {
            out << "added partnered server " << store.addPartner(newPartner_).id << '\n';
        } else if (*partnerUpdate_) {
            if (!store.updatePartner(id_, changes)) {
                throw NotFound("no partnered server with id " + std::to_string(id_));
            }
            out << "updated partnered server " << id_ << '\n';
        } else if (*partnerList_) {
            list(out, store.partners(), [&out](const PartneredServer& server) {
                out << server.id << '\t' << (server.status ? "on" : "off") << '\t' << server.ip << ':'
                    << server.port << '\t' << server.players << '/' << server.maxPlayers << '\t'
                    << oneLine(server.title) << '\t' << oneLine(server.subtitle) << '\n';
            });
        } else if (*partnerRemove_) {
            if (!store.removePartner(id_)) {
                throw NotFound("no partnered server with id " + std::to_string(id_));
            }
            out << "removed partnered server " << id_ << '\n';
        } else if (*blockAdd_) {
            for (const std::string& host : hosts_) {
                if (hasUpper(host)) {
                    err << commandPath(app_) << ": warning: the app compares lower-case hosts, so '" << host
                        << "' never matches\n";
                }
                const bool added = store.addBlocked(host, currentTimeMilliseconds()).has_value();
                out << (added ? "blocked " : "already blocked ") << host << '\n';
            }
        } else if (*blockList_) {
            list(out, store.blocked(), [&out](const BlacklistServer& server) {
                out << server.ip << '\t' << formatUtcTimestamp(server.addedAtMs) << '\n';
            });
        } else if (*blockRemove_) {
            std::vector<std::string> missing;
            for (const std::string& host : hosts_) {
                if (store.removeBlocked(host)) {
                    out << "unblocked " << host << '\n';
                } else {
                    missing.push_back(host);
                }
            }
            if (!missing.empty()) {
                throw NotFound("not blocked: " + joined(missing));
            }
        } else if (*messageAdd_) {
            const Message added = store.addMessage(version_, text_);
            out << "added message " << added.id << " for version " << added.version << '\n';
        } else if (*messageList_) {
            list(out, store.messages(given(messageList_, "--version", version_)), [&out](const Message& message) {
                out << message.id << '\t' << message.version << '\t' << oneLine(message.message) << '\n';
            });
        } else if (*messageRemove_) {
            if (!store.removeMessage(id_)) {
                throw NotFound("no message with id " + std::to_string(id_));
            }
            out << "removed message " << id_ << '\n';
        } else if (*logList_) {
            const auto newest = limit_ > 0 ? std::optional<std::size_t>(limit_) : std::nullopt;
            list(out, store.logEntries(newest), [&out](const LogEntry& entry) {
                out << formatUtcTimestamp(entry.receivedAtMs) << '\t' << entry.remoteAddress << '\t'
                    << oneLine(entry.serverIp) << ':' << oneLine(entry.serverPort) << '\t'
                    << oneLine(entry.clientIp) << '\n';
            });
        }
    }

    // Human listings are one record a line, fields separated by tabs.
    template <typename Record, typename PrintLine>
    void list(std::ostream& out, const std::vector<Record>& records, PrintLine printLine) const {
        if (!json_) {
            std::for_each(records.begin(), records.end(), printLine);
            return;
        }
        Json array = Json::array();
        for (const Record& record : records) {
            array.push_back(listingJson(record));
        }
        out << dumpJson(array, 2) << '\n';
    }

    CLI::App app_;

    std::string database_ = kDefaultDatabase;
    bool json_ = false;
    std::string certificate_;
    std::string privateKey_;
    ServeOptions serveOptions_;
    PartneredServer newPartner_;
    PartneredServer changedPartner_;
    std::int64_t id_ = 0;
    std::vector<std::string> hosts_;
    std::string version_;
    std::string text_;
    std::size_t limit_ = 0;

    CLI::App* serve_ = nullptr;
    CLI::App* partnerAdd_ = nullptr;
    CLI::App* partnerUpdate_ = nullptr;
    CLI::App* partnerList_ = nullptr;
    CLI::App* partnerRemove_ = nullptr;
    CLI::App* blockAdd_ = nullptr;
    CLI::App* blockList_ = nullptr;
    CLI::App* blockRemove_ = nullptr;
    CLI::App* messageAdd_ = nullptr;
    CLI::App* messageList_ = nullptr;
    CLI::App* messageRemove_ = nullptr;
    CLI::App* logList_ = nullptr;
};

}  // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    return CommandLine().run(argc, argv, out, err);
}

}  // namespace ferrylink::backend
