#include "PMSWireLog.h"

#include "PMSRecordJSON.h"
#include "PMSRedaction.h"
#include "PMSShownText.h"

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <cstdio>
#include <ostream>

namespace {

// A JSON body indented, with card ids hidden; anything else (too deep included) as it came. Escaped and cut
// either way.
std::vector<std::string> bodyLines(const std::string& body) {
    if (const auto document = PMSRedaction::hiddenCardsDocument(body)) {
        return PMSShownText::lines(document->dump(2, ' ', false, PMSJSON::error_handler_t::replace));
    }
    return PMSShownText::lines(body);
}

void addHalf(std::vector<std::string>& lines, const char* mark, const std::vector<std::pair<std::string, std::string>>& headers,
             const std::string& body) {
    for (const auto& [name, value] : headers) {
        lines.push_back(std::string(mark) + PMSShownText::line(name + ": " + value));
    }
    if (body.empty()) return;
    lines.push_back(std::string(mark).substr(0, 1));
    for (const std::string& line : bodyLines(body)) lines.push_back(mark + line);
}

}  // namespace

PMSWireLog::PMSWireLog(std::ostream& err, int verbosity) : err_(err), verbosity_(verbosity) {}

VLMSDKHTTPExchangeObserver PMSWireLog::observer() const {
    if (verbosity_ <= 0) return {};
    return [err = &err_, verbosity = verbosity_](const VLMSDKHTTPExchange& exchange) {
        std::string text;
        for (const std::string& line : lines(exchange, verbosity)) text += line + '\n';
        VLMSDKMainQueue::async([err, text = std::move(text)] {
            *err << text;
            err->flush();
        });
    };
}

std::vector<std::string> PMSWireLog::lines(const VLMSDKHTTPExchange& exchange, int verbosity) {
    char figures[128];
    std::snprintf(figures, sizeof figures, ", %zu bytes, %.1f ms, attempt %u", exchange.responseBody.size(),
                  static_cast<double>(exchange.duration.count()) / 1000.0, exchange.attempt);
    std::string summary = "* " + PMSShownText::line(exchange.method + " " + exchange.url) + " -> " +
                          (exchange.statusCode != 0 ? std::to_string(exchange.statusCode) : "no answer") + figures;
    if (!exchange.failure.empty()) {
        // The failure's message starts by naming the request, which the line has said already.
        const std::string named = exchange.method + " " + exchange.url + " failed: ";
        const bool repeats = exchange.failure.compare(0, named.size(), named) == 0;
        summary += "; " + PMSShownText::line(repeats ? exchange.failure.substr(named.size()) : exchange.failure);
    }
    std::vector<std::string> lines{summary};
    if (verbosity < 2) return lines;
    addHalf(lines, "> ", exchange.requestHeaders, exchange.requestBody.value_or(""));
    addHalf(lines, "< ", exchange.responseHeaders, exchange.responseBody);
    return lines;
}
