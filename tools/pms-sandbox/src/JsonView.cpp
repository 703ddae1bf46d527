#include "JsonView.h"

#include "Booking.h"
#include "Money.h"
#include "Payment.h"
#include "StoredCard.h"

namespace pmssandbox {

using nlohmann::json;

json JsonView::reservation(const Booking& booking) {
    json guests = json::array();
    for (const Guest& guest : booking.guests) {
        guests.push_back({{"first_name", guest.firstName},
                          {"last_name", guest.lastName},
                          {"profile_code", guest.profileCode}});
    }
    return {
        {"id", booking.id},
        {"checkin_id", booking.checkinId},
        {"user_id", booking.userId},
        {"venue_id", booking.venueId},
        {"confirmation_id", booking.confirmationId},
        {"reservation_number", booking.reservationNumber},
        {"client_number", booking.clientNumber},
        {"currency_code", booking.currency},
        {"checkin_date", booking.checkinDate},
        {"checkout_date", booking.checkoutDate},
        {"total_stay_amount", Money::toNumber(booking.totalStayCents)},
        {"room_number", booking.roomNumber},
        {"guests", std::move(guests)},
        {"not_synced_amount", Money::toNumber(booking.notSyncedCents)},
        {"checkin_is_available", booking.checkinAvailable},
        {"reservation_info", booking.info},
        {"outstanding_amount", Money::toNumber(booking.outstandingCents)},
        {"status", std::string(toString(booking.status))},
    };
}

json JsonView::folio(const Booking& booking) {
    json lines = json::array();
    for (const Posting& posting : booking.postings) {
        json amount = posting.amountAsText ? json(Money::toText(posting.cents)) : json(Money::toNumber(posting.cents));
        lines.push_back({{"posting_name", posting.name},
                         {"posting_code", posting.code},
                         {"amount", std::move(amount)},
                         {"currency_code", posting.currency}});
    }
    return {
        {"folio_id", booking.folioId},
        {"outstanding_amount", Money::toNumber(booking.outstandingCents)},
        {"currency", booking.currency},
        {"transactions", std::move(lines)},
    };
}

json JsonView::transaction(const Payment& payment) {
    return {
        {"id", payment.id},
        {"amount", Money::toNumber(payment.cents)},
        {"currency", payment.currency},
        {"status", "succeeded"},
        {"credit_card_id", payment.cardId},
        {"created_at", payment.createdAt},
    };
}

json JsonView::overview(const Booking& booking, std::int64_t chargedCents, std::int64_t paidCents, std::int64_t lines) {
    return {
        {"id", booking.id},
        {"confirmation_id", booking.confirmationId},
        {"venue_id", booking.venueId},
        {"guest", booking.bookerFirstName + " " + booking.bookerLastName},
        {"user_id", booking.userId},
        {"on_platform", booking.onPlatform},
        {"status", std::string(toString(booking.status))},
        {"room_number", booking.roomNumber},
        {"checkin_is_available", booking.checkinAvailable},
        {"notify_me", booking.notifyMe ? json(*booking.notifyMe) : json()},
        {"currency", booking.currency},
        {"folio", {{"lines", lines},
                   {"charged", Money::toNumber(chargedCents)},
                   {"paid", Money::toNumber(paidCents)},
                   {"outstanding", Money::toNumber(booking.outstandingCents)}}},
    };
}

json JsonView::card(const StoredCard& card) {
    return {{"id", card.id}, {"user_id", card.userId}, {"brand", card.brand}, {"last4", card.last4},
            {"declines", card.declines}};
}

}  // namespace pmssandbox
