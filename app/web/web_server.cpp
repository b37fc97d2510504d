#include "app/web/web_server.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <thread>

#include "app/web/access_token.h"
#include "app/web/http_connections.h"
#include "app/web/json_http.h"
#include "app/web/main_queue_gate.h"
#include "app/web/request_guard.h"
#include "app/web/web_routes.h"
#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

using foundation::DispatchQueue;

namespace {

// Every open event stream holds a worker for as long as it is open; a phone
// or a desktop has a few pages open at most.
constexpr http::ConnectionLimits kConnectionLimits{
    .workers = 32,
    .maxConnections = 128,
    .maxPerAddress = 32,
};

std::string tokenFor(const WebServerOptions& options, bool loopback) {
    if (!options.fixedToken.empty()) {
        if (!isAccessTokenText(options.fixedToken)) {
            throw std::invalid_argument("an access token is 32 lower-case hex digits");
        }
        return options.fixedToken;
    }
    return loopback ? std::string() : makeAccessToken();
}

std::string addressText(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = {};
    socklen_t length = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (::getnameinfo(address, length, text, sizeof(text), nullptr, 0, NI_NUMERICHOST) != 0) {
        return {};
    }
    return text;
}

// The machine's addresses of one family (AF_INET or AF_INET6), interfaces
// that are up only, link-local IPv6 left out (it needs a zone in a URL).
std::vector<std::string> localAddressesOf(int family) {
    std::vector<std::string> addresses;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return addresses;
    }
    for (auto* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != family || !(entry->ifa_flags & IFF_UP)) {
            continue;
        }
        if (family == AF_INET6) {
            auto* v6 = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
            if (IN6_IS_ADDR_LINKLOCAL(&v6->sin6_addr)) {
                continue;
            }
        }
        if (auto text = addressText(entry->ifa_addr); !text.empty()) {
            addresses.push_back(text);
        }
    }
    ::freeifaddrs(list);
    return addresses;
}

}  // namespace

class WebServer::Impl {
public:
    Impl(AppCore& core, WebServerOptions options)
        : core_(core),
          options_(std::move(options)),
          guard_(isLoopbackHost(options_.listen.host), tokenFor(options_, isLoopbackHost(options_.listen.host))) {}

    // Without stop() the main queue is not asked for anything: the session
    // goes with its own destructor, which is safe from any thread.
    ~Impl() {
        if (!stopped_.exchange(true)) {
            gate_.close();
            http_.stop();
            if (listener_.joinable()) {
                listener_.join();
            }
        }
    }

    void start() {
        session_ = WebSession::make(core_, options_.timings);
        session_->start();
        routes_ = webRoutes(session_, gate_, options_.keepalive, guard_.token());

        http_.set_tcp_nodelay(true);
        routes_.install(http_, http::BodyLimit{}, [this](const httplib::Request& request, const http::Route* route) {
            guard_.check(request, route == nullptr || route->guarded, route != nullptr && isDocumentRoute(*route));
        });

        const auto& listen = options_.listen;
        errno = 0;
        if (listen.port == 0) {
            port_ = http_.bind_to_any_port(listen.host);
        } else {
            port_ = http_.bind_to_port(listen.host, listen.port) ? listen.port : -1;
        }
        if (port_ < 0) {
            int error = errno;
            session_->stop();
            throw WebServerError("cannot listen on " + urlHost(listen.host) + ":" + std::to_string(listen.port) +
                                 (error != 0 ? std::string(": ") + std::strerror(error) : std::string()));
        }
        http_.widenBacklog();
        listener_ = std::thread([this] { http_.listen_after_bind(); });
    }

    void stop() {
        if (stopped_.exchange(true)) {
            return;
        }
        gate_.close();
        if (session_) {
            // Ends the streams, so their threads let go of their connections.
            auto session = session_;
            if (DispatchQueue::main().isCurrent()) {
                session->stop();
            } else {
                std::promise<void> done;
                DispatchQueue::main().async([&] {
                    session->stop();
                    done.set_value();
                });
                done.get_future().wait();
            }
        }
        http_.stop();
        if (listener_.joinable()) {
            listener_.join();
        }
    }

    int port() const { return port_; }
    const std::string& token() const { return guard_.token(); }

    std::vector<std::string> pageAddresses() const {
        const std::string& host = options_.listen.host;
        std::vector<std::string> hosts;
        if (host == "0.0.0.0" || host == "::") {
            hosts = localAddressesOf(AF_INET);
            if (host == "::") {
                auto v6 = localAddressesOf(AF_INET6);
                hosts.insert(hosts.end(), v6.begin(), v6.end());
            }
        }
        // A phone needs a network address; this machine's own browser can
        // do with any, so loopback goes last.
        std::stable_partition(hosts.begin(), hosts.end(), [](const std::string& each) { return !isLoopbackHost(each); });
        if (hosts.empty()) {
            hosts.push_back(host);
        }
        std::vector<std::string> addresses;
        for (const auto& each : hosts) {
            std::string address = "http://" + urlHost(each) + ":" + std::to_string(port_) + "/";
            if (!token().empty()) {
                address += "?token=" + token();
            }
            addresses.push_back(address);
        }
        return addresses;
    }

private:
    AppCore& core_;
    WebServerOptions options_;
    RequestGuard guard_;
    MainQueueGate gate_;
    std::shared_ptr<WebSession> session_;
    http::RouteTable routes_;
    http::LimitedHttpServer http_{kConnectionLimits};
    std::thread listener_;
    int port_ = -1;
    std::atomic<bool> stopped_{false};
};

WebServer::WebServer(AppCore& core, WebServerOptions options)
    : impl_(std::make_unique<Impl>(core, std::move(options))) {}

WebServer::~WebServer() = default;

void WebServer::start() { impl_->start(); }

int WebServer::port() const { return impl_->port(); }

const std::string& WebServer::token() const { return impl_->token(); }

std::vector<std::string> WebServer::pageAddresses() const { return impl_->pageAddresses(); }

void WebServer::stop() { impl_->stop(); }

}  // namespace ferrylink::app
