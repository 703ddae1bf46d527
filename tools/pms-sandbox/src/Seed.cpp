#include "Seed.h"

#include "AsciiText.h"
#include "Money.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <set>
#include <utility>

namespace pmssandbox {

namespace {

using nlohmann::json;

// Thrown only inside this file; parse() turns it into the error text.
struct SeedError {
    std::string message;
};

[[noreturn]] void fail(const std::string& where, const std::string& what) { throw SeedError{where + ": " + what}; }

std::string at(const std::string& where, const char* key) { return where.empty() ? key : where + "." + key; }

std::string at(const std::string& where, std::size_t index) { return where + "[" + std::to_string(index) + "]"; }

const json* find(const json& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

const json& require(const json& object, const std::string& where, const char* key) {
    const json* value = find(object, key);
    if (!value) fail(at(where, key), "is missing");
    return *value;
}

std::string stringMember(const json& object, const std::string& where, const char* key, bool allowEmpty = false) {
    const json& value = require(object, where, key);
    if (!value.is_string()) fail(at(where, key), "must be a string");
    std::string text = value.get<std::string>();
    if (!allowEmpty && text.empty()) fail(at(where, key), "must not be empty");
    return text;
}

std::string optionalStringMember(const json& object, const std::string& where, const char* key) {
    const json* value = find(object, key);
    if (!value) return {};
    if (!value->is_string()) fail(at(where, key), "must be a string");
    return value->get<std::string>();
}

bool boolMember(const json& object, const std::string& where, const char* key, std::optional<bool> fallback) {
    const json* value = find(object, key);
    if (!value) {
        if (fallback) return *fallback;
        fail(at(where, key), "is missing");
    }
    if (!value->is_boolean()) fail(at(where, key), "must be true or false");
    return value->get<bool>();
}

std::int64_t amountMember(const json& object, const std::string& where, const char* key,
                          std::optional<std::int64_t> fallback = std::nullopt) {
    const json* value = find(object, key);
    if (!value) {
        if (fallback) return *fallback;
        fail(at(where, key), "is missing");
    }
    auto cents = Money::centsFromJson(*value);
    if (!cents) fail(at(where, key), "must be an amount in whole cents, as a number or text");
    return *cents;
}

const json& arrayMember(const json& object, const std::string& where, const char* key) {
    const json& value = require(object, where, key);
    if (!value.is_array()) fail(at(where, key), "must be an array");
    return value;
}

void requireObject(const json& value, const std::string& where) {
    if (!value.is_object()) fail(where, "must be an object");
}

bool isDate(const std::string& text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return false;
    for (std::size_t i : {0, 1, 2, 3, 5, 6, 8, 9}) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    }
    const int month = std::stoi(text.substr(5, 2));
    const int day = std::stoi(text.substr(8, 2));
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

bool isCurrencyCode(const std::string& text) {
    return text.size() == 3 && std::all_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

void insertUnique(std::set<std::string>& seen, const std::string& value, const std::string& where) {
    if (!seen.insert(value).second) fail(where, "\"" + value + "\" is used twice");
}

Venue parseVenue(const json& node, const std::string& where, std::set<std::string>& venueIds) {
    requireObject(node, where);
    Venue venue;
    venue.id = stringMember(node, where, "id");
    insertUnique(venueIds, venue.id, at(where, "id"));
    venue.name = stringMember(node, where, "name");
    venue.currency = stringMember(node, where, "currency_code");
    if (!isCurrencyCode(venue.currency)) fail(at(where, "currency_code"), "must be three capital letters");

    if (const json* rooms = find(node, "rooms")) {
        if (!rooms->is_array()) fail(at(where, "rooms"), "must be an array");
        std::set<std::string> seen;
        for (std::size_t i = 0; i < rooms->size(); ++i) {
            const json& room = (*rooms)[i];
            if (!room.is_string() || room.get_ref<const std::string&>().empty())
                fail(at(at(where, "rooms"), i), "must be a non-empty string");
            insertUnique(seen, room.get<std::string>(), at(at(where, "rooms"), i));
            venue.rooms.push_back(room.get<std::string>());
        }
    }

    const json& catalog = arrayMember(node, where, "catalog");
    std::set<std::string> itemIds;
    for (std::size_t i = 0; i < catalog.size(); ++i) {
        const std::string itemWhere = at(at(where, "catalog"), i);
        requireObject(catalog[i], itemWhere);
        CatalogItem item;
        item.id = stringMember(catalog[i], itemWhere, "item_id");
        insertUnique(itemIds, item.id, at(itemWhere, "item_id"));
        item.name = stringMember(catalog[i], itemWhere, "name");
        item.postingCode = stringMember(catalog[i], itemWhere, "posting_code");
        item.priceCents = amountMember(catalog[i], itemWhere, "price");
        if (item.priceCents <= 0) fail(at(itemWhere, "price"), "must be above zero");
        venue.catalog.push_back(std::move(item));
    }
    return venue;
}

void parseUser(const json& node, const std::string& where, std::set<std::string>& userIds,
               std::set<std::string>& cardIds, std::vector<StoredCard>& cards) {
    requireObject(node, where);
    const std::string userId = stringMember(node, where, "id");
    insertUnique(userIds, userId, at(where, "id"));
    const json& list = arrayMember(node, where, "cards");
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string cardWhere = at(at(where, "cards"), i);
        requireObject(list[i], cardWhere);
        StoredCard card;
        card.id = stringMember(list[i], cardWhere, "id");
        insertUnique(cardIds, card.id, at(cardWhere, "id"));
        card.userId = userId;
        card.brand = stringMember(list[i], cardWhere, "brand");
        card.last4 = stringMember(list[i], cardWhere, "last4");
        if (card.last4.size() != 4 || !std::all_of(card.last4.begin(), card.last4.end(), [](unsigned char c) {
                return std::isdigit(c) != 0;
            }))
            fail(at(cardWhere, "last4"), "must be four digits");
        card.declines = boolMember(list[i], cardWhere, "declines", false);
        cards.push_back(std::move(card));
    }
}

Guest parseGuest(const json& node, const std::string& where) {
    requireObject(node, where);
    Guest guest;
    guest.firstName = stringMember(node, where, "first_name");
    guest.lastName = stringMember(node, where, "last_name");
    guest.profileCode = stringMember(node, where, "profile_code");
    return guest;
}

void parseFolio(const json& node, const std::string& where, Booking& booking) {
    requireObject(node, where);
    booking.folioId = stringMember(node, where, "folio_id");
    const json& lines = arrayMember(node, where, "transactions");
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string lineWhere = at(at(where, "transactions"), i);
        requireObject(lines[i], lineWhere);
        Posting posting;
        posting.name = stringMember(lines[i], lineWhere, "posting_name");
        posting.code = stringMember(lines[i], lineWhere, "posting_code");
        posting.cents = amountMember(lines[i], lineWhere, "amount");
        posting.amountAsText = lines[i].at("amount").is_string();
        posting.currency = stringMember(lines[i], lineWhere, "currency_code");
        if (posting.currency != booking.currency)
            fail(at(lineWhere, "currency_code"), "must be the booking's currency " + booking.currency);
        booking.outstandingCents += posting.cents;
        booking.postings.push_back(std::move(posting));
    }
}

Booking parseBooking(const json& node, const std::string& where, const Seed& seed,
                     const std::set<std::string>& userIds) {
    requireObject(node, where);
    Booking booking;
    booking.id = stringMember(node, where, "id");
    booking.checkinId = stringMember(node, where, "checkin_id");
    booking.userId = stringMember(node, where, "user_id");
    if (!userIds.count(booking.userId)) fail(at(where, "user_id"), "no user \"" + booking.userId + "\"");
    booking.venueId = stringMember(node, where, "venue_id");
    auto venue = std::find_if(seed.venues.begin(), seed.venues.end(),
                              [&](const Venue& v) { return v.id == booking.venueId; });
    if (venue == seed.venues.end()) fail(at(where, "venue_id"), "no venue \"" + booking.venueId + "\"");
    booking.confirmationId = stringMember(node, where, "confirmation_id");
    booking.reservationNumber = stringMember(node, where, "reservation_number");
    booking.clientNumber = stringMember(node, where, "client_number");

    const json& booker = require(node, where, "booker");
    requireObject(booker, at(where, "booker"));
    booking.bookerFirstName = stringMember(booker, at(where, "booker"), "first_name");
    booking.bookerLastName = stringMember(booker, at(where, "booker"), "last_name");

    booking.currency = stringMember(node, where, "currency_code");
    if (booking.currency != venue->currency)
        fail(at(where, "currency_code"), "must be the venue's currency " + venue->currency);
    booking.checkinDate = stringMember(node, where, "checkin_date");
    booking.checkoutDate = stringMember(node, where, "checkout_date");
    if (!isDate(booking.checkinDate)) fail(at(where, "checkin_date"), "must be a YYYY-MM-DD date");
    if (!isDate(booking.checkoutDate)) fail(at(where, "checkout_date"), "must be a YYYY-MM-DD date");
    if (booking.checkoutDate <= booking.checkinDate) fail(at(where, "checkout_date"), "must come after checkin_date");
    booking.totalStayCents = amountMember(node, where, "total_stay_amount");
    booking.roomNumber = optionalStringMember(node, where, "room_number");

    const json& guests = arrayMember(node, where, "guests");
    if (guests.empty() || guests.size() > 3) fail(at(where, "guests"), "must list one to three guests");
    for (std::size_t i = 0; i < guests.size(); ++i) booking.guests.push_back(parseGuest(guests[i], at(at(where, "guests"), i)));

    booking.notSyncedCents = amountMember(node, where, "not_synced_amount", 0);
    booking.checkinAvailable = boolMember(node, where, "checkin_is_available", std::nullopt);
    booking.info = optionalStringMember(node, where, "reservation_info");
    const std::string status = stringMember(node, where, "status");
    auto parsedStatus = stayStatusFromString(status);
    if (!parsedStatus) fail(at(where, "status"), "must be reserved, in_house or checked_out");
    booking.status = *parsedStatus;
    if (booking.status != StayStatus::Reserved && booking.roomNumber.empty())
        fail(at(where, "room_number"), "is needed once the guest has arrived");
    booking.onPlatform = boolMember(node, where, "on_platform", false);
    parseFolio(require(node, where, "folio"), at(where, "folio"), booking);
    return booking;
}

Seed parseDocument(const json& document) {
    requireObject(document, "seed");
    Seed seed;

    const json& venues = arrayMember(document, "", "venues");
    std::set<std::string> venueIds;
    for (std::size_t i = 0; i < venues.size(); ++i) seed.venues.push_back(parseVenue(venues[i], at("venues", i), venueIds));

    const json& users = arrayMember(document, "", "users");
    std::set<std::string> userIds;
    std::set<std::string> cardIds;
    for (std::size_t i = 0; i < users.size(); ++i) parseUser(users[i], at("users", i), userIds, cardIds, seed.cards);

    const json& bookings = arrayMember(document, "", "bookings");
    std::set<std::string> ids;
    std::set<std::string> checkinIds;
    std::set<std::string> folioIds;
    std::set<std::string> references;
    for (std::size_t i = 0; i < bookings.size(); ++i) {
        const std::string where = at("bookings", i);
        Booking booking = parseBooking(bookings[i], where, seed, userIds);
        insertUnique(ids, booking.id, at(where, "id"));
        insertUnique(checkinIds, booking.checkinId, at(where, "checkin_id"));
        insertUnique(folioIds, booking.folioId, at(where, "folio.folio_id"));
        // Lookups ignore case, so two bookings differing only in case would be ambiguous.
        insertUnique(references, lowered(booking.confirmationId) + " at " + booking.venueId,
                     at(where, "confirmation_id"));
        seed.bookings.push_back(std::move(booking));
    }
    return seed;
}

}  // namespace

std::optional<Seed> Seed::parse(std::string_view text, std::string& error) {
    try {
        json document = json::parse(text.begin(), text.end(), nullptr, false);
        if (document.is_discarded()) {
            error = "seed: not valid JSON";
            return std::nullopt;
        }
        Seed seed = parseDocument(document);
        error.clear();
        return seed;
    } catch (const SeedError& e) {
        error = e.message;
    } catch (const std::exception& e) {
        error = std::string("seed: ") + e.what();
    }
    return std::nullopt;
}

}  // namespace pmssandbox
