#include "PMSRecordJSON.h"

#include "PMSRedaction.h"

#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <cmath>
#include <cstdio>

namespace {

// JSON has no NaN or infinity: those print as null.
PMSJSON number(const std::optional<double>& value) {
    if (!value || !std::isfinite(*value)) return nullptr;
    return *value == 0.0 ? 0.0 : *value;  // no "-0.0"
}

PMSJSON dateOrNull(const std::optional<VLMSDKDate>& value) {
    return value ? PMSJSON(PMSRecordJSON::date(*value)) : PMSJSON(nullptr);
}

}  // namespace

std::string PMSRecordJSON::date(VLMSDKDate date) {
    const std::chrono::year_month_day ymd{date};
    char text[16];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                  static_cast<unsigned>(ymd.day()));
    return text;
}

std::string PMSRecordJSON::time(VLMSDKTime time) {
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::hh_mm_ss clock{time - day};
    char text[16];
    std::snprintf(text, sizeof text, "T%02d:%02d:%02dZ", static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    return date(day) + text;
}

PMSJSON PMSRecordJSON::reservation(const VLMSDKReservation& reservation) {
    PMSJSON guests = PMSJSON::array();
    for (const auto& each : reservation.guests()) {
        guests.push_back(each ? guest(*each) : PMSJSON(nullptr));
    }
    return {
        {"velmoraID", PMSRecordJSON::orNull(reservation.velmoraID())},
        {"status", PMSRecordJSON::orNull(reservation.statusStringRepresentation())},
        {"externalReservationID", PMSRecordJSON::orNull(reservation.externalReservationID())},
        {"internalReservationID", PMSRecordJSON::orNull(reservation.internalReservationID())},
        {"clientSideID", PMSRecordJSON::orNull(reservation.clientSideID())},
        {"venueVelmoraID", PMSRecordJSON::orNull(reservation.venueVelmoraID())},
        {"guestVelmoraID", PMSRecordJSON::orNull(reservation.guestVelmoraID())},
        {"checkinVelmoraID", PMSRecordJSON::orNull(reservation.checkinVelmoraID())},
        {"checkinDate", dateOrNull(reservation.checkinDate())},
        {"checkoutDate", dateOrNull(reservation.checkoutDate())},
        {"roomNumber", PMSRecordJSON::orNull(reservation.roomNumber())},
        {"priceCurrencyCode", PMSRecordJSON::orNull(reservation.priceCurrencyCode())},
        {"totalStayPriceAmount", number(reservation.totalStayPriceAmount())},
        {"remainPriceAmountToPay", number(reservation.remainPriceAmountToPay())},
        {"notSyncedPaidPriceAmount", number(reservation.notSyncedPaidPriceAmount())},
        {"isMobileCheckinOpen", reservation.isMobileCheckinOpen()},
        {"reservationInfo", PMSRecordJSON::orNull(reservation.reservationInfo())},
        {"guests", std::move(guests)},
    };
}

PMSJSON PMSRecordJSON::guest(const VLMSDKReservationGuest& guest) {
    return {
        {"firstName", PMSRecordJSON::orNull(guest.firstName())},
        {"lastName", PMSRecordJSON::orNull(guest.lastName())},
        {"profileCode", PMSRecordJSON::orNull(guest.profileCode())},
    };
}

PMSJSON PMSRecordJSON::folio(const VLMSDKFolio& folio) {
    PMSJSON postings = PMSJSON::array();
    for (const auto& each : folio.deliverables()) {
        postings.push_back(each ? posting(*each) : PMSJSON(nullptr));
    }
    return {
        {"folioID", PMSRecordJSON::orNull(folio.folioID())},
        {"outstandingAmount", number(folio.outstandingAmount())},
        {"paymentCurrency", PMSRecordJSON::orNull(folio.paymentCurrency())},
        {"deliverables", std::move(postings)},
    };
}

PMSJSON PMSRecordJSON::posting(const VLMSDKFolioDeliverableItem& posting) {
    return {
        {"name", PMSRecordJSON::orNull(posting.name())},
        {"code", PMSRecordJSON::orNull(posting.code())},
        {"price", number(posting.price())},
        {"currency", PMSRecordJSON::orNull(posting.currency())},
    };
}

PMSJSON PMSRecordJSON::transaction(const VLMSDKPaymentTransaction& transaction) {
    return {
        {"velmoraID", PMSRecordJSON::orNull(transaction.velmoraID())},
        {"status", PMSRecordJSON::orNull(transaction.status())},
        {"amount", number(transaction.amount())},
        {"currencyCode", PMSRecordJSON::orNull(transaction.currencyCode())},
        {"creditCardID",
         transaction.creditCardID() ? PMSJSON(PMSRedaction::cardID(*transaction.creditCardID())) : PMSJSON(nullptr)},
        {"createdAt", transaction.createdAt() ? PMSJSON(time(*transaction.createdAt())) : PMSJSON(nullptr)},
    };
}

PMSJSON PMSRecordJSON::payment(const VLMSDKPayForReservationResult& result) {
    return {
        {"paymentTransaction",
         result.paymentTransaction() ? transaction(*result.paymentTransaction()) : PMSJSON(nullptr)},
        {"reservation", result.reservation() ? reservation(*result.reservation()) : PMSJSON(nullptr)},
    };
}

std::string PMSRecordJSON::codeName(VLMErrorCode code) {
    switch (code) {
    case VLMErrorCode::Unknown: return "Unknown";
    case VLMErrorCode::RequiredArgument: return "RequiredArgument";
    case VLMErrorCode::Transport: return "Transport";
    case VLMErrorCode::Timeout: return "Timeout";
    case VLMErrorCode::Cancelled: return "Cancelled";
    case VLMErrorCode::InvalidRequest: return "InvalidRequest";
    case VLMErrorCode::ReplyTooLarge: return "ReplyTooLarge";
    case VLMErrorCode::Authentication: return "Authentication";
    case VLMErrorCode::HTTPStatus: return "HTTPStatus";
    case VLMErrorCode::InvalidResponse: return "InvalidResponse";
    case VLMErrorCode::MissingRequiredKey: return "MissingRequiredKey";
    case VLMErrorCode::ReplyMismatch: return "ReplyMismatch";
    case VLMErrorCode::Mapping: return "Mapping";
    case VLMErrorCode::Archive: return "Archive";
    }
    return "Code" + std::to_string(static_cast<int>(code));
}
