#include "PMSServiceURL.h"

#include <curl/curl.h>

#include <memory>

namespace {

struct HandleDeleter {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using URLHandle = std::unique_ptr<CURLU, HandleDeleter>;

// The part `which` of `url`, or nullopt when it has none.
std::optional<std::string> part(CURLU* url, CURLUPart which) {
    char* value = nullptr;
    if (curl_url_get(url, which, &value, 0) != CURLUE_OK || !value) return std::nullopt;
    std::string text(value);
    curl_free(value);
    return text;
}

}  // namespace

std::optional<PMSServiceURL> PMSServiceURL::parse(const std::string& text, std::string* problem) {
    auto fail = [problem](const char* why) -> std::optional<PMSServiceURL> {
        if (problem) *problem = why;
        return std::nullopt;
    };
    const URLHandle url(curl_url());
    if (!url) return fail("libcurl could not read it");
    // No default scheme: "localhost:8787" is refused rather than guessed at. Any scheme is read, so that the
    // check below can say what is wrong with it.
    switch (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME)) {
    case CURLUE_OK: break;
    case CURLUE_NO_HOST: return fail("it has no host");
    case CURLUE_BAD_PORT_NUMBER: return fail("its port is not a number from 1 to 65535");
    default: return fail(text.find("://") == std::string::npos ? "it has no scheme such as http://" : "it is not a URL");
    }
    const auto scheme = part(url.get(), CURLUPART_SCHEME);
    if (!scheme || (*scheme != "http" && *scheme != "https")) return fail("its scheme is not http or https");
    const auto host = part(url.get(), CURLUPART_HOST);
    if (!host || host->empty()) return fail("it has no host");
    // libcurl also finds a host in "http:/host/" and "http:///host/"; a base URL names it right after "//".
    const std::size_t slashes = scheme->size() + 1;
    if (text.size() <= slashes + 2 || text.compare(slashes, 2, "//") != 0 || text[slashes + 2] == '/') {
        return fail("its host does not follow the scheme and \"//\"");
    }
    if (part(url.get(), CURLUPART_QUERY) || part(url.get(), CURLUPART_FRAGMENT)) {
        return fail("it has a query or a fragment, which a base URL cannot keep");
    }
    std::string shown = text;
    if (part(url.get(), CURLUPART_PASSWORD)) {
        curl_url_set(url.get(), CURLUPART_PASSWORD, "***", 0);
        shown = part(url.get(), CURLUPART_URL).value_or("(a URL with a password)");
    }
    return PMSServiceURL(text, std::move(shown));
}
