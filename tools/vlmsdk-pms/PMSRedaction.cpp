#include "PMSRedaction.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr std::size_t kShownTail = 4;
// Deeper bodies are not parsed: hiding cards and printing walk the document recursively.
constexpr int kMaximumDepth = 64;

bool shallowEnough(const std::string& body) {
    int depth = 0;
    bool inString = false;
    for (std::size_t at = 0; at < body.size(); ++at) {
        const char c = body[at];
        if (inString) {
            if (c == '\\') ++at;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            if (++depth > kMaximumDepth) return false;
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    return true;
}

bool namesCard(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name.find("card") != std::string::npos;
}

}  // namespace

std::string PMSRedaction::cardID(std::string_view id) {
    if (id.size() < 2 * kShownTail) return "****";
    return "****" + std::string(id.substr(id.size() - kShownTail));
}

void PMSRedaction::hideCards(PMSJSON& document) {
    if (document.is_array()) {
        for (PMSJSON& element : document) hideCards(element);
        return;
    }
    if (!document.is_object()) return;
    for (auto member = document.begin(); member != document.end(); ++member) {
        if (member->is_string() && namesCard(member.key())) *member = cardID(member->get<std::string>());
        else hideCards(*member);
    }
}

std::optional<PMSJSON> PMSRedaction::hiddenCardsDocument(const std::string& body) {
    if (!shallowEnough(body)) return std::nullopt;
    PMSJSON document = PMSJSON::parse(body, nullptr, false);
    if (document.is_discarded()) return std::nullopt;
    hideCards(document);
    return document;
}
