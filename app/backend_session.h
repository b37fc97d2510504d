#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ferrylink::app {

// Where the backend is and whom to trust for it.
struct BackendEndpoint {
    std::string host;
    int port = 8443;
    // PEM CA certificates to trust instead of the system's store.
    std::optional<std::filesystem::path> caFile;
};

struct HttpRequest {
    std::string method = "GET";
    std::string address;
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<std::string> body;

    static HttpRequest get(std::string address) {
        HttpRequest request;
        request.address = std::move(address);
        return request;
    }
};

// What a request came to. `error` is set when the transport failed (no
// answer, refused, time-out, bad certificate) and holds its description;
// otherwise `body` holds the answer's body, empty or not. The HTTP status is
// kept for the record and decides nothing.
struct HttpResponse {
    std::optional<std::string> error;
    std::optional<std::string> body;
    long status = 0;
};

// The app's one HTTPS session. Requests run on the global queue's worker
// threads, and so do their completions: a completion that touches a model
// hops to the main queue itself.
class BackendSession {
public:
    static constexpr std::chrono::seconds timeout{60};

    explicit BackendSession(BackendEndpoint endpoint);

    const BackendEndpoint& endpoint() const { return endpoint_; }
    // "https://" + host + ":" + port; an IPv6 literal goes in brackets.
    std::string baseAddress() const;

    // The address as the HTTP client would send it, or std::nullopt when the
    // text does not parse as an absolute address.
    static std::optional<std::string> parseAddress(const std::string& text);

    // Sends the request and calls `completion` once, on a worker thread.
    void send(HttpRequest request, std::function<void(HttpResponse)> completion) const;

    // The same on the calling thread.
    HttpResponse perform(const HttpRequest& request) const;

    // How many requests send() has started so far, over all copies.
    uint64_t requestsStarted() const { return requestsStarted_->load(); }

private:
    BackendEndpoint endpoint_;
    std::shared_ptr<std::atomic<uint64_t>> requestsStarted_ = std::make_shared<std::atomic<uint64_t>>(0);
};

}  // namespace ferrylink::app
