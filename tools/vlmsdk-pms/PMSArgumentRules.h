#pragma once

#include "PMSChargeItem.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What the tool takes on its command line, checked before anything is sent. It is stricter than the kit,
/// which refuses only what would break a request: a value that passes here is one the kit sends as it is,
/// and a typo ("rsv_0003#", "--amount 0") is caught here, naming the flag, instead of reaching the service.
class PMSArgumentRules {
public:
    enum class Kind {
        Identifier,  ///< a platform id (reservation, venue, card, item): letters, digits, "-", "_", ".", "~";
                     ///< not "." or ".." (the characters a path segment carries as they are)
        Text,        ///< a confirmation number or a name: not blank, no control characters
        Amount,      ///< money: above 0, at most two decimals, under a billion
        Currency,    ///< a three-letter code; sent in capitals
        Item,        ///< ITEM or ITEM:QTY: an identifier, and a whole number from 1 to kMaximumQuantity
        Seconds,     ///< a duration in seconds, from 0.001 to kMaximumSeconds
        Retries,     ///< a whole number of retries, from 0 to kMaximumRetries
        ServiceURL,  ///< an http or https URL with a host (see PMSServiceURL)
        ItemNumber,  ///< an outbox item's number: a whole number from 1
    };

    static constexpr int kMaximumQuantity = 999;
    static constexpr int kMaximumSeconds = 86400;
    static constexpr int kMaximumRetries = 10;

    /// Empty when `text` is a good value of `kind`; else what such a value must be, and what is wrong with
    /// this one, for a line that starts with the flag's name ("--amount: wants ...").
    static std::string problem(Kind kind, std::string_view text);

    /// The value of text that passes its check; nullopt for text that does not.
    static std::optional<double> amount(std::string_view text);
    static std::optional<std::string> currency(std::string_view text);
    static std::optional<PMSChargeItem> item(std::string_view text);
    static std::optional<std::chrono::milliseconds> seconds(std::string_view text);
    static std::optional<unsigned> retries(std::string_view text);
    static std::optional<std::int64_t> itemNumber(std::string_view text);
    static bool isIdentifier(std::string_view text);
    static bool isText(std::string_view text);
};
