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

#include "app/web/http_connections.h"
#include "app/web/json_http.h"

namespace ferrylink::backend {
namespace {

using httplib::Request;
using httplib::Response;
using nlohmann::json;

using http::HttpError;

// Idle or slow clients get a moment each and no more; a host that opens
// many connections is turned away before it crowds out the others.
// What a note of a run may hold, and how many are kept for how long.
constexpr std::size_t kMaxNoteBytes = 4096;
constexpr std::size_t kMaxNoteFieldBytes = 255;
constexpr std::size_t kKeptNotes = 100'000;
constexpr std::int64_t kNoteAgeMs = 90LL * 24 * 3600 * 1000;

constexpr http::ConnectionLimits kConnectionLimits{
    .workers = 16,
    .maxConnections = 256,
    .maxPerAddress = 16,
    .idleTimeout = std::chrono::seconds(5),
    .requestTimeout = std::chrono::seconds(10),
    .writeTimeout = std::chrono::seconds(10),
};

void sendArray(Response& response, Json array) {
    // The lists change whenever the operator edits them; nothing may keep a
    // stale copy.
    response.set_header("Cache-Control", "no-cache");
    http::sendJson(response, 200, array);
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
                             const std::filesystem::path& privateKey, NoteBudget::Limits noteLimits)
    : store_(store), routes_(std::make_unique<http::RouteTable>()), noteBudget_(std::make_unique<NoteBudget>(noteLimits)) {
    // A client that hangs up in the middle of an answer must not end the
    // process; a handler the embedding program installed is left alone.
    struct sigaction current {};
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
        signal(SIGPIPE, SIG_IGN);
    }
    // The files are loaded here rather than by httplib so that a failure can
    // say which file is wrong and why.
    std::string failure;
    server_ = std::make_unique<http::LimitedHttpsServer>(kConnectionLimits, [&](SSL_CTX& context) {
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
    routes_->add({"POST", "/postLog", [this](const Request& request, Response& response) {
        const std::int64_t now = currentTimeMilliseconds();
        if (request.body.size() > kMaxNoteBytes) {
            throw HttpError{413, "a note is " + std::to_string(kMaxNoteBytes) + " bytes at most"};
        }
        const json body = http::objectBody(request);
        LogEntry entry;
        for (auto [name, field] : {std::pair{"serverIp", &entry.serverIp}, std::pair{"serverPort", &entry.serverPort},
                                   std::pair{"clientIp", &entry.clientIp}}) {
            *field = http::stringMember(body, name);
            if (field->size() > kMaxNoteFieldBytes) {
                throw HttpError{400, std::string("the member '") + name + "' is over " +
                                         std::to_string(kMaxNoteFieldBytes) + " bytes"};
            }
        }
        if (auto wait = noteBudget_->take(request.remote_addr, now)) {
            response.set_header("Retry-After", std::to_string(*wait));
            throw HttpError{429, "too many notes; try again in " + std::to_string(*wait) + " s"};
        }
        entry.receivedAtMs = now;
        entry.remoteAddress = request.remote_addr;
        entry.contentType = request.get_header_value("Content-Type");
        entry.accept = request.get_header_value("Accept");
        entry.userAgent = request.get_header_value("User-Agent");
        entry.body = request.body;
        const LogEntry stored = store_.addLogEntry(entry);
        store_.pruneLogEntries(kKeptNotes, now - kNoteAgeMs);
        http::sendJson(response, 201, {{"id", stored.id}});
    }});
    routes_->add({"GET", "/getStatus", [this](const Request&, Response& response) {
        Json servers = Json::array();
        for (const PartneredServer& server : store_.partners()) {
            servers.push_back(wireJson(server));
        }
        sendArray(response, std::move(servers));
    }});
    routes_->add({"GET", "/blacklist/all", [this](const Request&, Response& response) {
        Json servers = Json::array();
        for (const BlacklistServer& server : store_.blocked()) {
            servers.push_back(wireJson(server));
        }
        sendArray(response, std::move(servers));
    }});
    routes_->add({"GET", "/message/by-version", [this](const Request& request, Response& response) {
        if (!request.has_param("version")) {
            throw HttpError{400, "missing query parameter \"version\""};
        }
        Json messages = Json::array();
        for (const Message& message : store_.messages(request.get_param_value("version"))) {
            messages.push_back(wireJson(message));
        }
        sendArray(response, std::move(messages));
    }});
    routes_->install(*server_, http::BodyLimit{kMaxBodyBytes}, {}, [this](const Request& request, std::string_view what) {
        if (logSink_) {
            logSink_("error: " + request.method + " " + request.path + " failed: " + std::string(what));
        }
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
    server_->widenBacklog();
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
                                         int port, LogSink logSink, NoteBudget::Limits noteLimits)
    : server_(store, certificate, privateKey, noteLimits), address_(address) {
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
