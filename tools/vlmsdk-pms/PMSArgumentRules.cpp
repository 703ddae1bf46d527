#include "PMSArgumentRules.h"

#include "PMSServiceURL.h"
#include "PMSShownText.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace {

constexpr std::size_t kQuotedLimit = 60;

// Appended rather than "'" + line + "'": g++ 12 at -O3 warns falsely (-Wrestrict) on that form.
std::string quoted(std::string_view text) {
    std::string out = "'";
    out.append(PMSShownText::line(text, kQuotedLimit)).append("'");
    return out;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isIdentifierCharacter(char c) { return isLetter(c) || isDigit(c) || c == '-' || c == '_' || c == '.' || c == '~'; }

// "WHOLE[.FRACTION]" or ".FRACTION", in plain decimal digits (no sign, exponent, "nan" or "inf"), with at most
// `wholeDigits` and `fractionDigits` of each.
std::optional<double> decimal(std::string_view text, std::size_t wholeDigits, std::size_t fractionDigits) {
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction = point < text.size() ? text.substr(point + 1) : std::string_view();
    if (whole.size() > wholeDigits || fraction.size() > fractionDigits || whole.size() + fraction.size() == 0) {
        return std::nullopt;
    }
    if (!std::all_of(whole.begin(), whole.end(), isDigit) || !std::all_of(fraction.begin(), fraction.end(), isDigit)) {
        return std::nullopt;
    }
    double value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) return std::nullopt;
    return value;
}

std::string identifierProblem(std::string_view text) {
    if (text.empty()) return "wants an id, not an empty value";
    if (text == "." || text == "..") return "wants an id, not " + quoted(text);
    const auto bad = std::find_if_not(text.begin(), text.end(), isIdentifierCharacter);
    return "wants an id made of letters, digits, '-', '_', '.' and '~'; " + quoted(text) + " holds " +
           quoted(std::string_view(&*bad, 1));
}

}  // namespace

bool PMSArgumentRules::isIdentifier(std::string_view text) {
    return !text.empty() && text != "." && text != ".." && std::all_of(text.begin(), text.end(), isIdentifierCharacter);
}

bool PMSArgumentRules::isText(std::string_view text) {
    return text.find_first_not_of(" \t") != std::string_view::npos && !PMSShownText::needsEscaping(text);
}

std::optional<double> PMSArgumentRules::amount(std::string_view text) {
    const auto value = decimal(text, 9, 2);
    if (!value || *value <= 0) return std::nullopt;
    return value;
}

std::optional<std::string> PMSArgumentRules::currency(std::string_view text) {
    if (text.size() != 3 || !std::all_of(text.begin(), text.end(), isLetter)) return std::nullopt;
    std::string code(text);
    for (char& c : code) c = static_cast<char>(c >= 'a' ? c - 'a' + 'A' : c);
    return code;
}

std::optional<PMSChargeItem> PMSArgumentRules::item(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    PMSChargeItem item{std::string(text.substr(0, colon)), 1};
    if (!isIdentifier(item.itemID)) return std::nullopt;
    if (colon == std::string_view::npos) return item;
    const std::string_view digits = text.substr(colon + 1);
    int quantity = 0;
    const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), quantity);
    if (digits.empty() || !isDigit(digits[0]) || failed != std::errc() || end != digits.data() + digits.size() ||
        quantity < 1 || quantity > kMaximumQuantity) {
        return std::nullopt;
    }
    item.quantity = quantity;
    return item;
}

std::optional<std::chrono::milliseconds> PMSArgumentRules::seconds(std::string_view text) {
    const auto value = decimal(text, 5, 3);
    if (!value || *value < 0.001 || *value > kMaximumSeconds) return std::nullopt;
    return std::chrono::milliseconds(std::llround(*value * 1000));
}

std::optional<unsigned> PMSArgumentRules::retries(std::string_view text) {
    unsigned count = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (text.empty() || failed != std::errc() || end != text.data() + text.size() ||
        count > static_cast<unsigned>(kMaximumRetries)) {
        return std::nullopt;
    }
    return count;
}

std::optional<std::int64_t> PMSArgumentRules::itemNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || !isDigit(text[0]) || failed != std::errc() || end != text.data() + text.size() || number < 1) {
        return std::nullopt;
    }
    return number;
}

std::string PMSArgumentRules::problem(Kind kind, std::string_view text) {
    switch (kind) {
    case Kind::Identifier:
        return isIdentifier(text) ? "" : identifierProblem(text);
    case Kind::Text:
        if (isText(text)) return "";
        return text.find_first_not_of(" \t") == std::string_view::npos
                   ? "wants text, not an empty value"
                   : "wants text without control characters; " + quoted(text) + " holds one";
    case Kind::Amount:
        return amount(text) ? "" : "wants an amount above 0 with at most two decimals, such as 61.00; not " + quoted(text);
    case Kind::Currency:
        return currency(text) ? "" : "wants a three-letter currency code such as USD, not " + quoted(text);
    case Kind::Item:
        return item(text) ? ""
                          : "wants ITEM or ITEM:QTY, with ITEM an id and QTY a whole number from 1 to " +
                                std::to_string(kMaximumQuantity) + "; not " + quoted(text);
    case Kind::Seconds:
        return seconds(text) ? ""
                             : "wants a number of seconds from 0.001 to " + std::to_string(kMaximumSeconds) +
                                   ", such as 30 or 2.5; not " + quoted(text);
    case Kind::Retries:
        return retries(text) ? ""
                             : "wants a whole number of retries from 0 to " + std::to_string(kMaximumRetries) +
                                   ", such as 2; not " + quoted(text);
    case Kind::ServiceURL: {
        std::string why;
        if (PMSServiceURL::parse(std::string(text), &why)) return "";
        return "wants an http or https URL with a host, such as http://127.0.0.1:8787/; " + why;
    }
    case Kind::ItemNumber:
        return itemNumber(text) ? "" : "wants an item number as 'vlmsdk-pms outbox list' shows it, such as 3; not " + quoted(text);
    }
    return "";
}
