#include "backend/backend_server.h"

#include <httplib.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include <nlohmann/json.hpp>

namespace ferrylink::backend {
namespace {

using httplib::Request;
using httplib::Response;
using nlohmann::json;

// The paths served, with their one method each. Anything else on these paths
// is a 405; any other path a 404. (The paths double as httplib's route
// patterns, which are regular expressions: they hold no special character.)
struct Endpoint {
    const char* path;
    const char* method;
};
constexpr Endpoint kEndpoints[] = {
    {"/postLog", "POST"},
    {"/getStatus", "GET"},
    {"/blacklist/all", "GET"},
    {"/message/by-version", "GET"},
};

constexpr const char* kJsonType = "application/json";

void sendJson(Response& response, int status, const Json& body) {
    response.status = status;
    response.set_content(dumpJson(body), kJsonType);
}

void sendArray(Response& response, Json array) {
    // The lists change whenever the operator edits them; nothing may keep a
    // stale copy.
    response.set_header("Cache-Control", "no-cache");
    sendJson(response, 200, array);
}

void sendError(Response& response, int status, const std::string& message) {
    sendJson(response, status, {{"error", message}});
}

// The words for a failure that httplib itself answered, before any handler
// of ours ran.
std::string defaultErrorText(const Request& request, int status) {
    switch (status) {
    case 400:
        return "malformed request";
    case 404:
        return "no such endpoint: " + request.path;
    case 413:
        return "request body is larger than " + std::to_string(BackendServer::kMaxBodyBytes) + " bytes";
    case 414:
        return "request target is too long";
    case 416:
        return "requested range not satisfiable";
    default:
        return status < 500 ? "request refused" : "internal server error";
    }
}

// "application/json", in any case, with or without parameters such as a
// charset.
bool isJsonMediaType(std::string_view contentType) {
    const auto end = contentType.find(';');
    std::string_view type = contentType.substr(0, end);
    while (!type.empty() && std::isspace(static_cast<unsigned char>(type.back()))) {
        type.remove_suffix(1);
    }
    while (!type.empty() && std::isspace(static_cast<unsigned char>(type.front()))) {
        type.remove_prefix(1);
    }
    constexpr std::string_view expected = "application/json";
    return std::equal(type.begin(), type.end(), expected.begin(), expected.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == b;
    });
}

// A request answered before its body was read leaves that body on the
// connection, where it would be taken for the next request: close instead.
void closeIfBodyUnread(const Request& request, Response& response) {
    const std::string length = request.get_header_value("Content-Length");
    const bool bodyFollows = request.has_header("Transfer-Encoding") || (!length.empty() && length != "0");
    if (bodyFollows) {
        response.set_header("Connection", "close");
    }
}

// The reason of the oldest error queued by OpenSSL on this thread; the queue
// is emptied.
std::string openSslReason() {
    const unsigned long code = ERR_peek_error();
    const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
    ERR_clear_error();
    return reason != nullptr ? reason : "unknown error";
}

std::string hostForUrl(const std::string& address) {
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

}  // namespace

BackendServer::BackendServer(Store& store, const std::filesystem::path& certificate,
                             const std::filesystem::path& privateKey)
    : store_(store) {
    // A client that hangs up in the middle of an answer must not end the
    // process; a handler the embedding program installed is left alone.
    struct sigaction current {};
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
        signal(SIGPIPE, SIG_IGN);
    }
    // The files are loaded here rather than by httplib so that a failure can
    // say which file is wrong and why.
    std::string failure;
    server_ = std::make_unique<httplib::SSLServer>([&](SSL_CTX& context) {
        SSL_CTX_set_options(&context, SSL_OP_NO_COMPRESSION | SSL_OP_NO_SESSION_RESUMPTION_ON_RENEGOTIATION);
        SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION);
        ERR_clear_error();
        if (SSL_CTX_use_certificate_chain_file(&context, certificate.c_str()) != 1) {
            failure = "cannot read a certificate chain from " + certificate.string() + ": " + openSslReason();
            return false;
        }
        // Loading the key also checks it against the certificate.
        if (SSL_CTX_use_PrivateKey_file(&context, privateKey.c_str(), SSL_FILETYPE_PEM) != 1) {
            const unsigned long code = ERR_peek_error();
            if (ERR_GET_LIB(code) == ERR_LIB_X509 && ERR_GET_REASON(code) == X509_R_KEY_VALUES_MISMATCH) {
                ERR_clear_error();
                failure = "the key in " + privateKey.string() + " does not belong to the certificate in " +
                          certificate.string();
            } else {
                failure = "cannot read a private key from " + privateKey.string() + ": " + openSslReason();
            }
            return false;
        }
        return true;
    });
    if (!server_->is_valid()) {
        throw ServerError(failure.empty() ? "cannot set up TLS" : failure);
    }
    server_->set_payload_max_length(kMaxBodyBytes);
    // httplib's default shares the port with any other listener on it
    // (SO_REUSEPORT); a second backend started by mistake must fail instead.
    server_->set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    installRoutes();
}

BackendServer::~BackendServer() = default;

void BackendServer::setLogSink(LogSink sink) {
    logSink_ = std::move(sink);
}

void BackendServer::installRoutes() {
    // Decided before httplib reads a body, so a wrong method or path is
    // answered at once whatever the request carries.
    server_->set_pre_routing_handler([](const Request& request, Response& response) {
        for (const Endpoint& endpoint : kEndpoints) {
            if (request.path != endpoint.path) {
                continue;
            }
            const std::string allowed = endpoint.method;
            if (request.method == allowed || (allowed == "GET" && request.method == "HEAD")) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            response.set_header("Allow", allowed == "GET" ? "GET, HEAD" : allowed);
            sendError(response, 405, request.method + " is not allowed on " + request.path + "; use " + allowed);
            closeIfBodyUnread(request, response);
            return httplib::Server::HandlerResponse::Handled;
        }
        sendError(response, 404, "no such endpoint: " + request.path);
        closeIfBodyUnread(request, response);
        return httplib::Server::HandlerResponse::Handled;
    });

    server_->Post("/postLog", [this](const Request& request, Response& response) {
        const std::string contentType = request.get_header_value("Content-Type");
        if (!isJsonMediaType(contentType)) {
            sendError(response, 415, "Content-Type must be application/json");
            return;
        }
        if (request.body.empty()) {
            sendError(response, 400, "request body is empty");
            return;
        }
        json body;
        try {
            body = json::parse(request.body);
        } catch (const json::parse_error& error) {
            sendError(response, 400, "request body is not valid JSON (at byte " + std::to_string(error.byte) + ")");
            return;
        }
        if (!body.is_object()) {
            sendError(response, 400, "request body must be a JSON object");
            return;
        }
        LogEntry entry;
        const std::pair<const char*, std::string*> members[] = {
            {"serverIp", &entry.serverIp},
            {"serverPort", &entry.serverPort},
            {"clientIp", &entry.clientIp},
        };
        for (const auto& [key, field] : members) {
            const auto member = body.find(key);
            if (member == body.end()) {
                sendError(response, 400, std::string("missing member \"") + key + "\"");
                return;
            }
            if (!member->is_string()) {
                sendError(response, 400, std::string("member \"") + key + "\" must be a string");
                return;
            }
            *field = member->get<std::string>();
        }
        entry.receivedAtMs = currentTimeMilliseconds();
        entry.remoteAddress = request.remote_addr;
        entry.contentType = contentType;
        entry.accept = request.get_header_value("Accept");
        entry.userAgent = request.get_header_value("User-Agent");
        entry.body = request.body;
        const LogEntry stored = store_.addLogEntry(entry);
        sendJson(response, 201, {{"id", stored.id}});
    });

    server_->Get("/getStatus", [this](const Request&, Response& response) {
        Json servers = Json::array();
        for (const PartneredServer& server : store_.partners()) {
            servers.push_back(wireJson(server));
        }
        sendArray(response, std::move(servers));
    });

    server_->Get("/blacklist/all", [this](const Request&, Response& response) {
        Json servers = Json::array();
        for (const BlacklistServer& server : store_.blocked()) {
            servers.push_back(wireJson(server));
        }
        sendArray(response, std::move(servers));
    });

    server_->Get("/message/by-version", [this](const Request& request, Response& response) {
        if (!request.has_param("version")) {
            sendError(response, 400, "missing query parameter \"version\"");
            return;
        }
        Json messages = Json::array();
        for (const Message& message : store_.messages(request.get_param_value("version"))) {
            messages.push_back(wireJson(message));
        }
        sendArray(response, std::move(messages));
    });

    // Failures answered by httplib itself (a request it can't parse, a body
    // over the limit) get the same JSON body as ours.
    server_->set_error_handler([](const Request& request, Response& response) {
        if (response.body.empty()) {
            response.set_content(dumpJson({{"error", defaultErrorText(request, response.status)}}), kJsonType);
        }
    });

    server_->set_exception_handler([this](const Request& request, Response& response, std::exception_ptr error) {
        std::string what = "unknown exception";
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& exception) {
            what = exception.what();
        } catch (...) {
        }
        if (logSink_) {
            logSink_("error: " + request.method + " " + request.path + " failed: " + what);
        }
        sendError(response, 500, "internal server error");
    });

    server_->set_logger([this](const Request& request, const Response& response) {
        if (!logSink_) {
            return;
        }
        // A request whose first line could not be read has no method, target
        // or peer filled in.
        const std::string what =
            request.method.empty() ? "<unreadable request>" : request.method + " " + request.target;
        const std::string peer = request.remote_addr.empty() ? "-" : request.remote_addr;
        logSink_(peer + " \"" + what + "\" " + std::to_string(response.status));
    });
}

int BackendServer::bind(const std::string& address, int port) {
    const std::string where = hostForUrl(address) + ":" + std::to_string(port);
    // Resolve first: httplib folds a resolver failure and a bind failure into
    // one, and only the second leaves its reason in errno.
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int resolved = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (resolved != 0) {
        throw ServerError("cannot listen on " + where + ": " + gai_strerror(resolved));
    }
    freeaddrinfo(found);

    errno = 0;
    int bound = port;
    if (port == 0) {
        bound = server_->bind_to_any_port(address);
    } else if (!server_->bind_to_port(address, port)) {
        bound = -1;
    }
    if (bound < 0) {
        const int error = errno;
        throw ServerError("cannot listen on " + where + (error != 0 ? std::string(": ") + std::strerror(error) : ""));
    }
    return bound;
}

void BackendServer::run() {
    {
        std::lock_guard lock(stateMutex_);
        if (stopRequested_) {
            return;
        }
        running_ = true;
    }
    server_->listen_after_bind();
    std::lock_guard lock(stateMutex_);
    running_ = false;
}

void BackendServer::stop() {
    std::unique_lock lock(stateMutex_);
    stopRequested_ = true;
    // httplib ignores stop() until its accept loop has begun, so a stop that
    // lands in the moment between run() and that loop waits for the loop.
    while (running_ && !server_->is_running()) {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
    }
    if (running_) {
        server_->stop();
    }
}

BackendServerThread::BackendServerThread(Store& store, const std::filesystem::path& certificate,
                                         const std::filesystem::path& privateKey, const std::string& address,
                                         int port, LogSink logSink)
    : server_(store, certificate, privateKey), address_(address) {
    server_.setLogSink(std::move(logSink));
    port_ = server_.bind(address, port);
    thread_ = std::thread([this] { server_.run(); });
}

BackendServerThread::~BackendServerThread() {
    server_.stop();
    thread_.join();
}

std::string BackendServerThread::baseUrl() const {
    return "https://" + hostForUrl(address_) + ":" + std::to_string(port_);
}

}  // namespace ferrylink::backend
