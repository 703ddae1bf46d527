#pragma once

#include "PMSRecordJSON.h"

#include <optional>
#include <string>
#include <string_view>

/// Stored-card identifiers as the tool shows them, wherever they appear: results, demo steps and the bodies
/// printed at -vv. Like the bearer token and a password in the service's URL (which the transport already
/// hides), a card id is never printed whole.
class PMSRedaction {
public:
    /// "****4242": the last four characters of an id of eight or more, "****" for a shorter one.
    static std::string cardID(std::string_view id);
    /// Replaces, at any depth of `document`, each text value of a member whose name mentions a card
    /// ("credit_card_id", "creditCardID", "card") by cardID() of it.
    static void hideCards(PMSJSON& document);
    /// `body` as a JSON document with hideCards() applied; nullopt when it is not JSON or is nested deeper than
    /// the tool walks (64 levels), so that a hostile body cannot exhaust the stack.
    static std::optional<PMSJSON> hiddenCardsDocument(const std::string& body);
};
