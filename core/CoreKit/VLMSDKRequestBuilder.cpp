#include "VLMSDKHeaderLookup.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <algorithm>
#include <cstdio>

#ifndef VLMSDK_VERSION_STRING
#define VLMSDK_VERSION_STRING "0"
#endif

namespace {

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && vlmsdk::detail::equalsIgnoringASCIICase(text.substr(0, prefix.size()), prefix);
}

// Space, control characters and DEL cannot stand in a URL or a header value unescaped.
std::optional<std::size_t> firstForbiddenCharacter(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c <= 0x20 || c == 0x7F) return i;
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

void percentEncode(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789ABCDEF";
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
            c == '.' || c == '~') {
            out += ch;
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xF];
        }
    }
}

}  // namespace

VLMSDKRequestBuilder::VLMSDKRequestBuilder(std::string baseURL) : baseURL_(std::move(baseURL)) {
    if (!baseURL_.empty() && baseURL_.back() != '/') baseURL_ += '/';
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
        parts.url = baseURL_;
        parts.headers = defaultHeaders_;
        provider = tokenProvider_;
        token = accessToken_;
    }
    // The provider runs outside the lock: it may take its time or touch the builder itself.
    if (provider) token = provider();

    auto fail = [&](std::string message) {
        parts.buildError = invalidRequest(std::move(message));
        return std::make_shared<const VLMSDKRequest>(std::move(parts));
    };

    if (!startsWithIgnoringCase(parts.url, "http://") && !startsWithIgnoringCase(parts.url, "https://")) {
        return fail("The service base URL '" + parts.url + "' is not an http or https URL.");
    }
    if (auto bad = firstForbiddenCharacter(parts.url)) {
        return fail("The service base URL holds the character " + describeCharacter(parts.url[*bad]) +
                    ", which cannot stand in a URL.");
    }
    if (auto bad = firstForbiddenCharacter(path)) {
        return fail("The path '" + path + "' holds the character " + describeCharacter(path[*bad]) + " at offset " +
                    std::to_string(*bad) + ", which cannot stand in a URL.");
    }
    parts.url += std::string_view(path).substr(!path.empty() && path.front() == '/' ? 1 : 0);

    if (token) {
        for (const char c : *token) {
            const auto u = static_cast<unsigned char>(c);
            if (u < 0x20 || u == 0x7F) return fail("The access token holds a control character.");
        }
        parts.headers.emplace_back("Authorization", "Bearer " + *token);
    }
    for (const auto& [name, value] : parts.headers) {
        for (const char c : value) {
            const auto u = static_cast<unsigned char>(c);
            if (u == '\r' || u == '\n' || u == 0) return fail("The header '" + name + "' holds a line break.");
        }
    }

    if (parameters && !parameters->is_null()) {
        if (!parameters->is_object()) return fail("Request parameters must be a JSON object.");
        try {
            if (parametersInQuery) {
                std::string query;
                for (const auto& [key, value] : parameters->items()) {
                    query += query.empty() ? '?' : '&';
                    percentEncode(query, key);
                    query += '=';
                    percentEncode(query, value.is_string() ? value.get_ref<const std::string&>() : value.dump());
                }
                parts.url += query;
            } else {
                parts.body = parameters->dump();
            }
        } catch (const std::exception& e) {
            return fail(std::string("The request parameters cannot be written as JSON: ") + e.what());
        }
    }
    return std::make_shared<const VLMSDKRequest>(std::move(parts));
}
