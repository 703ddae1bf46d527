#include "VLMSDKHeaderLookup.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include "JSON/VLMSDKJSONWriter.h"
#include "VLMSDKRequestCheck.h"
#include "VLMSDKURLRedaction.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <new>

#ifndef VLMSDK_VERSION_STRING
#define VLMSDK_VERSION_STRING "0"
#endif

namespace {


// Space, control characters and DEL cannot stand in a base URL or a header value unescaped.
std::optional<std::size_t> firstForbiddenCharacter(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ' || vlmsdk::detail::isControlByte(text[i])) return i;
    }
    return std::nullopt;
}

std::string describeCharacter(char c) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "0x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    return buffer;
}

VLMErrorPtr invalidRequest(std::string message) {
    return VLMError::errorWithCode(VLMErrorCode::InvalidRequest, kVLMSDKNetworkErrorDomain, std::move(message), __func__,
                                   __FILE__);
}

bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.' || c == '~';
}

// RFC 3986 pchar: what may stand in a path segment as it is.
bool isPathCharacter(unsigned char c) {
    return isUnreserved(c) || std::string_view("!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string_view::npos;
}

void appendEscaped(std::string& out, unsigned char c) {
    static constexpr char hex[] = "0123456789ABCDEF";
    out += '%';
    out += hex[c >> 4];
    out += hex[c & 0xF];
}

void percentEncode(std::string& out, std::string_view text) {
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (isUnreserved(c)) {
            out += ch;
        } else {
            appendEscaped(out, c);
        }
    }
}

// Appends `path` to `url` with every byte outside the path characters escaped ('?', '#' and '%' included),
// so that nothing in it can start a query, cut the path or be decoded into another route. Dot segments and
// control characters are refused: the answer is why, or nullopt once appended.
std::optional<std::string> appendPath(std::string& url, std::string_view path) {
    if (!path.empty() && path.front() == '/') path.remove_prefix(1);
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (vlmsdk::detail::isControlByte(path[i])) {
            return "holds the control character " + describeCharacter(path[i]) + " at offset " + std::to_string(i);
        }
    }
    std::size_t start = 0;
    for (;;) {
        const auto end = std::min(path.find('/', start), path.size());
        const auto segment = path.substr(start, end - start);
        if (segment == "." || segment == "..") {
            return "holds the segment '" + std::string(segment) + "', which would send the request to another route";
        }
        for (const char ch : segment) {
            const auto c = static_cast<unsigned char>(ch);
            if (isPathCharacter(c)) {
                url += ch;
            } else {
                appendEscaped(url, c);
            }
        }
        if (end == path.size()) return std::nullopt;
        url += '/';
        start = end + 1;
    }
}

// Why `baseURL` cannot serve as the service's address (libcurl's URL parser judges), or nullopt.
std::optional<std::string> baseURLProblem(const std::string& baseURL) {
    if (!vlmsdk::detail::startsWithIgnoringASCIICase(baseURL, "http://") && !vlmsdk::detail::startsWithIgnoringASCIICase(baseURL, "https://")) {
        return "is not an http or https URL";
    }
    if (auto bad = firstForbiddenCharacter(baseURL)) {
        return "holds the character " + describeCharacter(baseURL[*bad]) + ", which cannot stand in a URL";
    }
    CURLU* parsed = curl_url();
    if (!parsed) throw std::bad_alloc();
    std::optional<std::string> problem;
    char* host = nullptr;
    char* query = nullptr;
    char* fragment = nullptr;
    if (curl_url_set(parsed, CURLUPART_URL, baseURL.c_str(), 0) != CURLUE_OK) {
        problem = "is not a URL libcurl can parse";
    } else if (curl_url_get(parsed, CURLUPART_HOST, &host, 0) != CURLUE_OK || !host || !*host) {
        problem = "names no host";
    } else if (curl_url_get(parsed, CURLUPART_QUERY, &query, 0) == CURLUE_OK ||
               curl_url_get(parsed, CURLUPART_FRAGMENT, &fragment, 0) == CURLUE_OK) {
        problem = "carries a query or a fragment, which the paths of the requests would follow";
    }
    curl_free(host);
    curl_free(query);
    curl_free(fragment);
    curl_url_cleanup(parsed);
    return problem;
}

}  // namespace

VLMSDKRequestBuilder::VLMSDKRequestBuilder(std::string baseURL) : baseURL_(std::move(baseURL)) {
    if (!baseURL_.empty() && baseURL_.back() != '/') baseURL_ += '/';
    baseURLProblem_ = baseURLProblem(baseURL_);
    defaultHeaders_ = {{"Accept", "application/json"},
                       {"Content-Type", "application/json"},
                       {"User-Agent", defaultUserAgent()}};
}

std::string VLMSDKRequestBuilder::defaultUserAgent() { return std::string("VLMSDKPMSKit/") + VLMSDK_VERSION_STRING; }

std::string VLMSDKRequestBuilder::baseURL() const {
    std::lock_guard lock(mutex_);
    return baseURL_;
}

void VLMSDKRequestBuilder::setAccessToken(std::optional<std::string> token) {
    std::lock_guard lock(mutex_);
    accessToken_ = std::move(token);
}

void VLMSDKRequestBuilder::setTokenProvider(TokenProvider provider) {
    std::lock_guard lock(mutex_);
    tokenProvider_ = std::move(provider);
}

void VLMSDKRequestBuilder::setCredentialsProvider(std::shared_ptr<VLMSDKCredentialsProvider> provider,
                                                  VLMSDKCredentials::Options options) {
    auto credentials = provider ? VLMSDKCredentials::make(std::move(provider), options) : nullptr;
    std::lock_guard lock(mutex_);
    credentials_ = std::move(credentials);
}

std::shared_ptr<VLMSDKCredentials> VLMSDKRequestBuilder::credentials() const {
    std::lock_guard lock(mutex_);
    return credentials_;
}

void VLMSDKRequestBuilder::setDefaultHeader(const std::string& name, std::optional<std::string> value) {
    std::lock_guard lock(mutex_);
    auto& headers = defaultHeaders_;
    headers.erase(std::remove_if(headers.begin(), headers.end(),
                                 [&](const auto& h) { return vlmsdk::detail::equalsIgnoringASCIICase(h.first, name); }),
                  headers.end());
    if (value) headers.emplace_back(name, std::move(*value));
}

VLMSDKRequest::Headers VLMSDKRequestBuilder::defaultHeaders() const {
    std::lock_guard lock(mutex_);
    return defaultHeaders_;
}

std::shared_ptr<const VLMSDKRequest> VLMSDKRequestBuilder::GETWithPath(const std::string& path,
                                                                       const std::optional<VLMSDKJSON>& parameters) {
    return requestWithMethod("GET", path, parameters, true);
}

std::shared_ptr<const VLMSDKRequest> VLMSDKRequestBuilder::POSTWithPath(const std::string& path,
                                                                        const std::optional<VLMSDKJSON>& parameters) {
    return requestWithMethod("POST", path, parameters, false);
}

std::shared_ptr<const VLMSDKRequest> VLMSDKRequestBuilder::PATCHWithPath(const std::string& path,
                                                                         const std::optional<VLMSDKJSON>& parameters) {
    return requestWithMethod("PATCH", path, parameters, false);
}

std::shared_ptr<const VLMSDKRequest> VLMSDKRequestBuilder::requestWithMethod(const std::string& method,
                                                                             const std::string& path,
                                                                             const std::optional<VLMSDKJSON>& parameters,
                                                                             bool parametersInQuery) {
    VLMSDKRequest::Parts parts;
    parts.method = method;
    parts.path = path;
    TokenProvider provider;
    std::optional<std::string> token;
    {
        std::lock_guard lock(mutex_);
        // Room for the path, a few of its bytes escaped: one allocation for the URL.
        parts.url.reserve(baseURL_.size() + path.size() + 32);
        parts.url = baseURL_;
        parts.headers = defaultHeaders_;
        parts.credentials = credentials_;
        if (!credentials_) {
            provider = tokenProvider_;
            token = accessToken_;
        }
    }
    // The provider runs outside the lock: it may take its time or touch the builder itself.
    if (provider) token = provider();

    auto fail = [&](std::string message) {
        parts.buildError = invalidRequest(std::move(message));
        return std::make_shared<const VLMSDKRequest>(std::move(parts));
    };

    if (baseURLProblem_) {
        return fail("The service base URL '" + vlmsdk::detail::redactedURL(parts.url) + "' " + *baseURLProblem_ + ".");
    }
    if (auto problem = appendPath(parts.url, path)) return fail("The path '" + path + "' " + *problem + ".");

    if (token) {
        if (std::any_of(token->begin(), token->end(), vlmsdk::detail::isControlByte)) {
            return fail("The access token holds a control character.");
        }
        parts.headers.emplace_back("Authorization", "Bearer " + *token);
    }
    // The request manager would refuse it; said here, where the header was set.
    for (const auto& [name, value] : parts.headers) {
        if (auto problem = vlmsdk::detail::VLMSDKRequestCheck::headerProblem(name, value)) {
            return fail(method + " " + vlmsdk::detail::VLMSDKRequestCheck::escaped(vlmsdk::detail::redactedURL(parts.url)) +
                        " was not made: " + *problem + ".");
        }
    }

    if (parameters && !parameters->is_null()) {
        if (!parameters->is_object()) return fail("Request parameters must be a JSON object.");
        using vlmsdk::detail::VLMSDKJSONWriter;
        std::string problem;
        if (parametersInQuery) {
            if (auto found = VLMSDKJSONWriter::problemIn(*parameters)) {
                return fail("The request parameters cannot be written as JSON: " + *found + "; nothing was sent.");
            }
            std::string query;
            for (const auto& [key, value] : parameters->items()) {
                query += query.empty() ? '?' : '&';
                percentEncode(query, key);
                query += '=';
                if (value.is_string()) {
                    percentEncode(query, value.get_ref<const std::string&>());
                } else if (auto text = VLMSDKJSONWriter::write(value, &problem)) {
                    percentEncode(query, *text);
                } else {
                    return fail("The request parameter '" + key + "' cannot be written as JSON: " + problem + ".");
                }
            }
            parts.url += query;
        } else if (auto text = VLMSDKJSONWriter::write(*parameters, &problem)) {
            parts.body = std::move(*text);
        } else {
            return fail("The request body cannot be written as JSON: " + problem + "; nothing was sent.");
        }
    }
    return std::make_shared<const VLMSDKRequest>(std::move(parts));
}
