#include "RequestLogRedactor.h"

#include "BearerToken.h"
#include "IsoTime.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <utility>

namespace pmssandbox {

namespace {

using nlohmann::json;

constexpr std::size_t kBodyShown = 2000;
constexpr const char* kCardMark = "[card]";

void replaceAll(std::string& text, std::string_view secret, std::string_view mark) {
    if (secret.empty()) return;
    for (auto at = text.find(secret); at != std::string::npos; at = text.find(secret, at + mark.size()))
        text.replace(at, secret.size(), mark);
}

// Card fields are masked whatever their value, so an id the seed does not know stays hidden too.
void maskCardFields(json& value) {
    if (value.is_object()) {
        for (auto& [key, member] : value.items()) {
            if (key == "credit_card_id" && member.is_string()) member = kCardMark;
            else maskCardFields(member);
        }
    } else if (value.is_array()) {
        for (json& member : value) maskCardFields(member);
    }
}

// Issued tokens are hidden by their shape, so one the service has since forgotten stays hidden too.
void maskIssuedTokens(std::string& text) {
    const std::string_view prefix = BearerToken::kIssuedPrefix;
    for (auto at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at + 1)) {
        const std::string_view digits = std::string_view(text).substr(at + prefix.size(), BearerToken::kIssuedDigits);
        if (digits.size() == BearerToken::kIssuedDigits &&
            std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c); }))
            text.replace(at, prefix.size() + digits.size(), "[token]");
    }
}

std::string keyHash(std::string_view key) {
    std::uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (unsigned char c : key) hash = (hash ^ c) * 1099511628211ull;
    char text[20];
    std::snprintf(text, sizeof text, "%012llx", static_cast<unsigned long long>(hash >> 16));
    return text;
}

std::string dumped(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

}  // namespace

RequestLogRedactor::RequestLogRedactor(std::string token, std::vector<std::string> cardIds)
    : token_(std::move(token)), cardIds_(std::move(cardIds)) {
    std::sort(cardIds_.begin(), cardIds_.end(), [](const auto& a, const auto& b) { return a.size() > b.size(); });
}

std::string RequestLogRedactor::redacted(std::string_view text) const {
    std::string out(text);
    replaceAll(out, token_, "[token]");
    maskIssuedTokens(out);
    for (const std::string& id : cardIds_) replaceAll(out, id, kCardMark);
    return out;
}

std::string RequestLogRedactor::body(const std::string& text) const {
    json parsed = json::parse(text, nullptr, false);
    std::string shown = text;
    if (!parsed.is_discarded()) {
        maskCardFields(parsed);
        shown = dumped(parsed);
    }
    shown = redacted(shown);
    if (shown.size() > kBodyShown) shown = shown.substr(0, kBodyShown) + "...";
    return shown;
}

json RequestLogRedactor::entry(const LoggedRequest& logged) const {
    const std::string key = logged.request.header("Idempotency-Key");
    const bool answered = logged.finished && logged.status != 0;
    return {
        {"sequence", logged.sequence},
        {"request_id", logged.requestId},
        {"time", isoTime(logged.receivedAt)},
        {"method", logged.request.method},
        {"path", redacted(logged.request.path)},
        {"status", answered ? json(logged.status) : json()},
        {"ms", logged.finished ? json(std::round(logged.milliseconds * 10) / 10) : json()},
        {"idempotency_key", logged.request.headers.count("idempotency-key") ? json(keyHash(key)) : json()},
        {"trace_id", traceId(logged.request).empty() ? json() : json(traceId(logged.request))},
        {"note", logged.finished ? logged.note : std::string("in flight")},
        {"body", body(logged.request.body)},
    };
}

std::string RequestLogRedactor::line(const LoggedRequest& logged) const {
    char figures[48];
    std::snprintf(figures, sizeof figures, " %d %.1f ms", logged.status, logged.milliseconds);
    std::string text = logged.request.method + " " + redacted(logged.request.path) + figures;
    if (!logged.note.empty()) text += " (" + logged.note + ")";
    if (const std::string trace = traceId(logged.request); !trace.empty()) text += " trace " + trace;
    return text;
}

std::string RequestLogRedactor::traceId(const RecordedRequest& request) {
    // "00-" TRACEID(32 hex) "-" SPANID(16 hex) "-" FLAGS: only the trace id is logged.
    const std::string value = request.header("traceparent");
    if (value.size() < 55 || value[2] != '-' || value[35] != '-') return {};
    const std::string trace = value.substr(3, 32);
    const bool hex = std::all_of(trace.begin(), trace.end(),
                                 [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
    return hex ? trace : std::string();
}

}  // namespace pmssandbox
