#pragma once

// A small blocking HTTPS client over libcurl for tests: verifies the peer
// against a given authority, returns status, headers and body.

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ferrylink::testing {

struct HttpsResponse {
    // Empty when the exchange happened; libcurl's words otherwise.
    std::string transportError;
    long status = 0;
    // Names in lower case.
    std::map<std::string, std::string> headers;
    std::string body;

    std::string header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? std::string() : found->second;
    }
};

class HttpsClient {
public:
    HttpsClient(std::string baseUrl, std::filesystem::path caCertificate)
        : baseUrl_(std::move(baseUrl)), caCertificate_(std::move(caCertificate)) {
        static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
        (void)initialised;
    }

    HttpsResponse get(const std::string& target) const { return send("GET", target, std::nullopt, {}); }

    HttpsResponse postJson(const std::string& target, const std::string& body) const {
        return send("POST", target, body, {"Content-Type: application/json", "Accept: application/json"});
    }

    // `body` absent sends none; present (even empty) sends it with its length.
    HttpsResponse send(const std::string& method, const std::string& target, const std::optional<std::string>& body,
                       const std::vector<std::string>& headers) const {
        HttpsResponse response;
        const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
        curl_slist* headerList = nullptr;
        for (const auto& header : headers) {
            headerList = curl_slist_append(headerList, header.c_str());
        }
        const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headerGuard(headerList,
                                                                                   curl_slist_free_all);
        const std::string url = baseUrl_ + target;
        char error[CURL_ERROR_SIZE] = {};
        curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl.get(), CURLOPT_CAINFO, caCertificate_.c_str());
        curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
        // A guard against a hung server, not a measurement.
        curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 60L);
        curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, error);
        curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headerList);
        if (method == "HEAD") {
            curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
        } else {
            curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method.c_str());
        }
        if (body) {
            curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body->data());
            curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body->size()));
        }
        curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &HttpsClient::appendBody);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &response.body);
        curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, &HttpsClient::addHeader);
        curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &response.headers);

        const CURLcode result = curl_easy_perform(curl.get());
        if (result != CURLE_OK) {
            response.transportError = error[0] != '\0' ? error : curl_easy_strerror(result);
            return response;
        }
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &response.status);
        return response;
    }

private:
    static size_t appendBody(char* data, size_t size, size_t count, void* body) {
        static_cast<std::string*>(body)->append(data, size * count);
        return size * count;
    }

    static size_t addHeader(char* data, size_t size, size_t count, void* headers) {
        const std::string line(data, size * count);
        const auto colon = line.find(':');
        if (colon != std::string::npos) {
            std::string name = line.substr(0, colon);
            std::transform(name.begin(), name.end(), name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            std::string value = line.substr(colon + 1);
            value.erase(0, value.find_first_not_of(" \t"));
            value.erase(value.find_last_not_of(" \t\r\n") + 1);
            (*static_cast<std::map<std::string, std::string>*>(headers))[name] = value;
        }
        return size * count;
    }

    std::string baseUrl_;
    std::filesystem::path caCertificate_;
};

}  // namespace ferrylink::testing
