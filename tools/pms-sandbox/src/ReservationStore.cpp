#include "ReservationStore.h"

#include "AsciiText.h"
#include "JsonView.h"
#include "Money.h"
#include "Payment.h"
#include "StoredCard.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <utility>

namespace pmssandbox {

namespace {

// Far beyond any stay, yet keeps sums of cents clear of overflow.
constexpr std::int64_t kBalanceLimitCents = 100'000'000'000'000;

// Guests type references and names by hand: ignore case and stray spaces.
std::string folded(std::string_view text) { return lowered(std::string(trimmed(text))); }

bool nameMatches(const Booking& booking, const std::string& lastName) {
    if (folded(booking.bookerLastName) == lastName) return true;
    return std::any_of(booking.guests.begin(), booking.guests.end(),
                       [&](const Guest& guest) { return folded(guest.lastName) == lastName; });
}

std::string nowUtc() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm parts{};
    gmtime_r(&now, &parts);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return buffer;
}

ApiReply notFound(const std::string& id) {
    return ApiReply::error(404, "reservation_not_found", "No reservation has the id '" + id + "'.");
}

ApiReply reservationReply(const Booking& booking) {
    return ApiReply::ok({{"reservation", JsonView::reservation(booking)}});
}

}  // namespace

ReservationStore::ReservationStore(BookingTable& table, const Seed& seed) : table_(table), seed_(seed) {}

void ReservationStore::reset() { table_.reset(seed_.bookings); }

ApiReply ReservationStore::create(const std::string& confirmationId, const std::string& venueId,
                                  const std::string& lastName) {
    const std::string reference = folded(confirmationId);
    const std::string name = folded(lastName);
    for (const Booking& seeded : seed_.bookings) {
        if (seeded.venueId != venueId || folded(seeded.confirmationId) != reference) continue;
        if (!nameMatches(seeded, name)) break;
        Booking booking = seeded;
        if (!table_.load(booking, false)) break;
        booking.onPlatform = true;
        table_.saveState(booking);
        return reservationReply(booking);
    }
    return ApiReply::error(404, "reservation_not_found",
                           "No booking matches that confirmation number, venue and last name.");
}

ApiReply ReservationStore::reservation(const std::string& id) const {
    const auto booking = findOnPlatform(id);
    return booking ? reservationReply(*booking) : notFound(id);
}

ApiReply ReservationStore::setNotifyMe(const std::string& id, bool notifyMe) {
    auto booking = findOnPlatform(id);
    if (!booking) return notFound(id);
    booking->notifyMe = notifyMe;
    table_.saveState(*booking);
    return reservationReply(*booking);
}

ApiReply ReservationStore::mobileCheckin(const std::string& id) {
    auto booking = findOnPlatform(id);
    if (!booking) return notFound(id);
    if (booking->status != StayStatus::Reserved) {
        return ApiReply::error(409, "invalid_status",
                               "Mobile check-in needs a reserved booking; this one is " +
                                   std::string(toString(booking->status)) + ".");
    }
    if (!booking->checkinAvailable)
        return ApiReply::error(409, "checkin_unavailable", "Mobile check-in is not open for this reservation yet.");
    if (booking->roomNumber.empty()) {
        auto room = freeRoom(*booking);
        if (!room) return ApiReply::error(409, "no_room_available", "No room is ready for this reservation yet.");
        booking->roomNumber = std::move(*room);
    }
    booking->status = StayStatus::InHouse;
    // The guest is in; offering check-in again would only lead to a conflict.
    booking->checkinAvailable = false;
    table_.saveState(*booking);
    return reservationReply(*booking);
}

ApiReply ReservationStore::mobileCheckout(const std::string& id) {
    auto booking = findOnPlatform(id);
    if (!booking) return notFound(id);
    if (booking->status != StayStatus::InHouse) {
        return ApiReply::error(409, "invalid_status",
                               "Mobile checkout needs a guest in house; this reservation is " +
                                   std::string(toString(booking->status)) + ".");
    }
    booking->status = StayStatus::CheckedOut;
    table_.saveState(*booking);
    return reservationReply(*booking);
}

ApiReply ReservationStore::pay(const std::string& id, const std::string& cardId, std::int64_t cents,
                               const std::string& currency) {
    auto booking = findOnPlatform(id);
    if (!booking) return notFound(id);
    if (cents <= 0) return ApiReply::error(422, "invalid_amount", "The amount must be above zero.");
    if (currency != booking->currency) {
        return ApiReply::error(422, "currency_mismatch",
                               "This reservation is paid in " + booking->currency + ", not " + currency + ".");
    }
    const auto& cards = seed_.cards;
    auto card = std::find_if(cards.begin(), cards.end(), [&](const StoredCard& c) { return c.id == cardId; });
    if (card == cards.end() || card->userId != booking->userId)
        return ApiReply::error(402, "card_declined", "That card is not on file for this guest.");
    if (card->declines) return ApiReply::error(402, "card_declined", "The card issuer declined the payment.");
    if (cents > booking->outstandingCents) {
        return ApiReply::error(409, "amount_exceeds_balance",
                               "The amount is more than the " + Money::toText(booking->outstandingCents) + " " +
                                   booking->currency + " outstanding.");
    }

    const Payment payment{table_.nextPaymentId(), card->id, cents, booking->currency, nowUtc()};
    table_.addPayment(booking->id, payment);
    table_.addPosting(booking->id,
                      Posting{"Payment - " + card->brand + " ending " + card->last4, "PAY", -cents, false,
                              booking->currency},
                      &payment.id);
    booking->outstandingCents -= cents;
    table_.saveState(*booking);
    return ApiReply::ok({{"reservation", JsonView::reservation(*booking)}, {"transaction", JsonView::transaction(payment)}});
}

ApiReply ReservationStore::folio(const std::string& id) const {
    const auto booking = findOnPlatform(id, true);
    return booking ? ApiReply::ok(JsonView::folio(*booking)) : notFound(id);
}

ApiReply ReservationStore::charge(const std::string& id, const std::vector<ChargeLine>& lines) {
    auto booking = findOnPlatform(id);
    if (!booking) return notFound(id);
    if (booking->status == StayStatus::CheckedOut)
        return ApiReply::error(409, "reservation_checked_out", "A checked-out reservation cannot take new charges.");
    const Venue* venue = findVenue(booking->venueId);

    // Check every line first so that a bad one leaves the folio untouched.
    std::vector<Posting> postings;
    std::int64_t total = 0;
    for (const ChargeLine& line : lines) {
        const CatalogItem* item = nullptr;
        if (venue) {
            auto it = std::find_if(venue->catalog.begin(), venue->catalog.end(),
                                   [&](const CatalogItem& candidate) { return candidate.id == line.itemId; });
            if (it != venue->catalog.end()) item = &*it;
        }
        if (!item) return ApiReply::error(422, "unknown_item", "This venue sells no item '" + line.itemId + "'.");
        postings.push_back(Posting{item->name, item->postingCode, item->priceCents * line.quantity, false, booking->currency});
        total += postings.back().cents;
        if (booking->outstandingCents + total > kBalanceLimitCents)
            return ApiReply::error(409, "balance_limit", "The folio cannot take charges that large.");
    }
    for (const Posting& posting : postings) table_.addPosting(booking->id, posting);
    booking->outstandingCents += total;
    table_.saveState(*booking);
    table_.load(*booking, true);
    return ApiReply::ok(JsonView::folio(*booking));
}

std::optional<bool> ReservationStore::notifyMe(std::string_view id) const {
    const auto booking = findOnPlatform(id);
    return booking ? booking->notifyMe : std::nullopt;
}

ApiReply ReservationStore::overview() const {
    nlohmann::json list = nlohmann::json::array();
    for (const Booking& seeded : seed_.bookings) {
        Booking booking = seeded;
        if (!table_.load(booking, false)) continue;
        const BookingTable::Totals totals = table_.totals(booking.id);
        list.push_back(JsonView::overview(booking, totals.chargedCents, totals.paidCents, totals.lines));
    }
    return ApiReply::ok({{"reservations", std::move(list)}});
}

ApiReply ReservationStore::cards() const {
    nlohmann::json list = nlohmann::json::array();
    for (const StoredCard& card : seed_.cards) list.push_back(JsonView::card(card));
    return ApiReply::ok({{"cards", std::move(list)}});
}

std::optional<Booking> ReservationStore::findOnPlatform(std::string_view id, bool withPostings) const {
    const auto& bookings = seed_.bookings;
    auto it = std::find_if(bookings.begin(), bookings.end(), [&](const Booking& b) { return b.id == id; });
    if (it == bookings.end()) return std::nullopt;
    Booking booking = *it;
    if (!table_.load(booking, withPostings) || !booking.onPlatform) return std::nullopt;
    return booking;
}

const Venue* ReservationStore::findVenue(std::string_view id) const {
    const auto& venues = seed_.venues;
    auto it = std::find_if(venues.begin(), venues.end(), [&](const Venue& v) { return v.id == id; });
    return it == venues.end() ? nullptr : &*it;
}

std::optional<std::string> ReservationStore::freeRoom(const Booking& booking) const {
    const Venue* venue = findVenue(booking.venueId);
    if (!venue) return std::nullopt;
    const std::vector<std::string> held = table_.roomsHeld(booking.venueId, booking.id);
    for (const std::string& room : venue->rooms) {
        if (std::find(held.begin(), held.end(), room) == held.end()) return room;
    }
    return std::nullopt;
}

}  // namespace pmssandbox
