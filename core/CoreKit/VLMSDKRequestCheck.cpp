#include "VLMSDKRequestCheck.h"

#include "VLMSDKHeaderLookup.h"

#include <array>
#include <cstdio>

namespace vlmsdk::detail {

namespace {

// RFC 9110 tchar.
bool isTokenCharacter(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}

// Fields the transport writes itself from the request's URL and body: one written by the caller too would
// give the request two lengths, two hosts or another framing.
constexpr std::array<std::string_view, 8> kTransportOwned = {
    "Host", "Content-Length", "Transfer-Encoding", "Connection", "Keep-Alive", "Upgrade", "TE", "Trailer"};

VLMErrorPtr invalid(const VLMSDKRequest& request, const std::string& problem) {
    return VLMError::errorWithCode(VLMErrorCode::InvalidRequest, kVLMSDKNetworkErrorDomain,
                                   VLMSDKRequestCheck::escaped(request.method()) + " " + request.redactedURL() +
                                       " was not sent: " + problem + ".",
                                   __func__, __FILE__);
}

}  // namespace

std::string VLMSDKRequestCheck::escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char ch : text) {
        if (!isControlByte(ch)) {
            out += ch;
            continue;
        }
        switch (ch) {
            case '\r': out += "\\r"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\0': out += "\\0"; break;
            default: {
                char hex[5];
                std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(ch)));
                out += hex;
            }
        }
    }
    return out;
}

bool VLMSDKRequestCheck::isSupportedMethod(std::string_view method) {
    return method == "GET" || method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

std::optional<std::string> VLMSDKRequestCheck::headerProblem(std::string_view name, std::string_view value) {
    // Every request passes here: words are made only for a problem.
    const auto shown = [name] { return "the header '" + escaped(name) + "'"; };
    if (name.empty()) return shown() + " has an empty name";
    for (const char c : name) {
        if (!isTokenCharacter(static_cast<unsigned char>(c))) {
            return shown() + " has a name that is not a token (RFC 9110): it holds '" +
                   escaped(std::string_view(&c, 1)) + "'";
        }
    }
    for (const std::string_view owned : kTransportOwned) {
        if (equalsIgnoringASCIICase(name, owned)) return shown() + " is written by the transport itself";
    }
    for (const char c : value) {
        if (c == '\r' || c == '\n' || c == '\0') {
            return shown() + " has a value holding '" + escaped(std::string_view(&c, 1)) + "', which would end the line";
        }
    }
    return std::nullopt;
}

VLMErrorPtr VLMSDKRequestCheck::rejectionOf(const VLMSDKRequest* request) {
    if (!request) {
        return VLMError::errorWithCode(VLMErrorCode::InvalidRequest, kVLMSDKNetworkErrorDomain, "No request was given.",
                                       __func__, __FILE__);
    }
    if (request->buildError()) return request->buildError();
    if (!isSupportedMethod(request->method())) {
        return invalid(*request, "the method '" + escaped(request->method()) +
                                     "' is not one the request manager sends (GET, POST, PUT, PATCH, DELETE)");
    }
    const std::string& url = request->url();
    if (!startsWithIgnoringASCIICase(url, "http://") && !startsWithIgnoringASCIICase(url, "https://")) {
        return invalid(*request, "the URL is not an http or https URL");
    }
    for (std::size_t i = 0; i < url.size(); ++i) {
        if (url[i] == ' ' || isControlByte(url[i])) {
            return invalid(*request, "the URL holds '" + (url[i] == ' ' ? std::string("space") : escaped(url.substr(i, 1))) +
                                         "' at offset " + std::to_string(i) + ", which cannot stand in a URL");
        }
    }
    for (const auto& [name, value] : request->headers()) {
        if (auto problem = headerProblem(name, value)) return invalid(*request, *problem);
    }
    return nullptr;
}

}  // namespace vlmsdk::detail
