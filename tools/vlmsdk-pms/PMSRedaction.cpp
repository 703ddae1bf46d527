#include "PMSRedaction.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr std::size_t kShownTail = 4;

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
