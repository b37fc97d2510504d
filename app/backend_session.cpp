#include "app/backend_session.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

namespace {

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

size_t appendBody(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

struct EasyCloser {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct ListCloser {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct UrlCloser {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

}  // namespace

BackendSession::BackendSession(BackendEndpoint endpoint) : endpoint_(std::move(endpoint)) { initialiseCurlOnce(); }

std::string BackendSession::baseAddress() const {
    bool ipv6Literal = endpoint_.host.find(':') != std::string::npos && endpoint_.host.front() != '[';
    std::string host = ipv6Literal ? "[" + endpoint_.host + "]" : endpoint_.host;
    return "https://" + host + ":" + std::to_string(endpoint_.port);
}

std::optional<std::string> BackendSession::parseAddress(const std::string& text) {
    initialiseCurlOnce();
    std::unique_ptr<CURLU, UrlCloser> url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    char* host = nullptr;
    if (curl_url_get(url.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) {
        return std::nullopt;
    }
    bool hasHost = host != nullptr && *host != '\0';
    curl_free(host);
    if (!hasHost) {
        return std::nullopt;
    }
    char* whole = nullptr;
    if (curl_url_get(url.get(), CURLUPART_URL, &whole, 0) != CURLUE_OK) {
        return std::nullopt;
    }
    std::string result(whole);
    curl_free(whole);
    return result;
}

void BackendSession::send(HttpRequest request, std::function<void(HttpResponse)> completion) const {
    requestsStarted_->fetch_add(1);
    foundation::DispatchQueue::global().async(
        [session = *this, request = std::move(request), completion = std::move(completion)] {
            completion(session.perform(request));
        });
}

HttpResponse BackendSession::perform(const HttpRequest& request) const {
    HttpResponse response;
    std::unique_ptr<CURL, EasyCloser> easy(curl_easy_init());
    if (!easy) {
        response.error = "The HTTP client could not be started.";
        return response;
    }
    std::unique_ptr<curl_slist, ListCloser> headers;
    for (const auto& [name, value] : request.headers) {
        std::string line = name + ": " + value;
        headers.reset(curl_slist_append(headers.release(), line.c_str()));
    }
    std::string body;
    char errorText[CURL_ERROR_SIZE] = {};

    CURL* handle = easy.get();
    curl_easy_setopt(handle, CURLOPT_URL, request.address.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(timeout).count()));
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    if (endpoint_.caFile) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, endpoint_.caFile->c_str());
    }
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "Ferrylink/1.0");
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    if (request.method == "POST") {
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        const std::string& sent = request.body ? *request.body : std::string();
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(sent.size()));
        curl_easy_setopt(handle, CURLOPT_COPYPOSTFIELDS, sent.c_str());
    } else if (request.method != "GET") {
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }

    CURLcode code = curl_easy_perform(handle);
    if (code != CURLE_OK) {
        std::string description = curl_easy_strerror(code);
        if (errorText[0] != '\0') {
            description += " (";
            description += errorText;
            description += ")";
        }
        response.error = description;
        return response;
    }
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &response.status);
    response.body = std::move(body);
    return response;
}

}  // namespace ferrylink::app
