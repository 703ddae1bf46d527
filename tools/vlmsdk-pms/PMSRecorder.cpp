#include "PMSRecorder.h"

#include "PMSRedaction.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <mutex>

namespace {

constexpr std::size_t kShownRouteLength = 80;

// The path of an absolute URL, without its query or fragment: "/api/v1/guest/reservations/rsv_1".
std::string pathOf(const std::string& url) {
    const auto scheme = url.find("://");
    const auto slash = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    if (slash == std::string::npos) return "/";
    return url.substr(slash, url.find_first_of("?#", slash) - slash);
}

bool equalsIgnoringCase(const std::string& a, const char* b) {
    const std::string other(b);
    return a.size() == other.size() && std::equal(a.begin(), a.end(), other.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

// A cookie may be a session; the others describe the wire, not the reply a test scripts.
bool leftOut(const std::string& header) {
    for (const char* name : {"Set-Cookie", "Content-Length", "Transfer-Encoding", "Connection", "Keep-Alive"}) {
        if (equalsIgnoringCase(header, name)) return true;
    }
    return false;
}

// The highest number a file of `directory` starts with ("007-..." is 7); 0 for none.
unsigned highestNumber(const std::filesystem::path& directory) {
    unsigned highest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        const auto digits = name.find_first_not_of("0123456789");
        if (digits == 0 || digits == std::string::npos || digits > 9 || name[digits] != '-') continue;
        highest = std::max(highest, static_cast<unsigned>(std::stoul(name.substr(0, digits))));
    }
    return highest;
}

}  // namespace

struct PMSRecorder::State {
    mutable std::mutex mutex;
    std::filesystem::path directory;
    std::string basePath = "/";
    unsigned next = 1;
    std::string problem;
};

std::unique_ptr<PMSRecorder> PMSRecorder::open(const std::filesystem::path& directory, std::string* problem) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!error && !std::filesystem::is_directory(directory, error)) error = std::make_error_code(std::errc::not_a_directory);
    if (error) {
        if (problem) *problem = directory.string() + ": " + error.message();
        return nullptr;
    }
    auto state = std::make_shared<State>();
    state->directory = directory;
    try {
        state->next = highestNumber(directory) + 1;
    } catch (const std::filesystem::filesystem_error& listing) {
        if (problem) *problem = directory.string() + ": " + listing.code().message();
        return nullptr;
    }
    return std::unique_ptr<PMSRecorder>(new PMSRecorder(std::move(state)));
}

void PMSRecorder::setBaseURL(const std::string& baseURL) {
    std::string path = pathOf(baseURL);
    if (path.back() != '/') path += '/';
    std::lock_guard lock(state_->mutex);
    state_->basePath = std::move(path);
}

VLMSDKHTTPExchangeObserver PMSRecorder::observer() const {
    return [state = state_](const VLMSDKHTTPExchange& exchange) {
        // Numbered and written under one lock, so that the files' order is the exchanges'.
        std::lock_guard lock(state->mutex);
        const PMSJSON document = fixture(exchange, state->basePath);
        const auto file = state->directory / fileName(state->next++, exchange.method,
                                                           document["request"]["route"].get<std::string>());
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out << document.dump(2, ' ', false, PMSJSON::error_handler_t::replace) << '\n';
        out.close();
        if (!out && state->problem.empty()) state->problem = file.string() + ": could not be written";
    };
}

std::string PMSRecorder::writeProblem() const {
    std::lock_guard lock(state_->mutex);
    return state_->problem;
}

PMSJSON PMSRecorder::fixture(const VLMSDKHTTPExchange& exchange, const std::string& basePath) {
    std::string route = pathOf(exchange.url);
    if (route.compare(0, basePath.size(), basePath) == 0) {
        route.erase(0, basePath.size());
    } else {
        route.erase(0, route.find_first_not_of('/'));
    }
    PMSJSON request = {{"method", exchange.method}, {"route", route}};
    if (exchange.requestBody) {
        if (auto body = PMSRedaction::hiddenCardsDocument(*exchange.requestBody)) request["body"] = std::move(*body);
    }
    PMSJSON reply = PMSJSON::object();
    if (exchange.statusCode == 0) {
        reply["fault"] = exchange.failure.find("timed out") != std::string::npos ? "timeout" : "dropped-connection";
    } else {
        reply["status"] = exchange.statusCode;
        PMSJSON headers = PMSJSON::object();
        for (const auto& [name, value] : exchange.responseHeaders) {
            if (leftOut(name)) continue;
            // A header sent twice is one value, as HTTP reads a list.
            const auto found = headers.find(name);
            if (found == headers.end()) {
                headers[name] = value;
            } else {
                *found = found->get<std::string>() + ", " + value;
            }
        }
        if (!headers.empty()) reply["headers"] = std::move(headers);
        if (auto body = PMSRedaction::hiddenCardsDocument(exchange.responseBody)) {
            reply["body"] = std::move(*body);
        } else if (exchange.responseBody.find_first_not_of(" \t\r\n") != std::string::npos) {
            reply["bodyText"] = exchange.responseBody;
        }
    }
    return {{"request", std::move(request)}, {"reply", std::move(reply)}};
}

std::string PMSRecorder::fileName(unsigned number, const std::string& method, const std::string& route) {
    char prefix[16];
    std::snprintf(prefix, sizeof prefix, "%03u-", number);
    std::string name = prefix;
    const auto add = [&name](const std::string& text, std::size_t limit) {
        for (std::size_t at = 0; at < text.size() && at < limit; ++at) {
            const unsigned char c = static_cast<unsigned char>(text[at]);
            name += std::isalnum(c) || c == '-' || c == '.' ? static_cast<char>(c) : '_';
        }
    };
    add(method, kShownRouteLength);
    name += '-';
    add(route, kShownRouteLength);
    return name + ".json";
}
