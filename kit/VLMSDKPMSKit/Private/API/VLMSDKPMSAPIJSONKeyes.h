#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

// Public through the kit's umbrella header, though it lives beside the private units that use it.
VLMSDK_API_BEGIN

/// The JSON keys under which the reservation service sends reservations, guests, folios and folio
/// postings. These four tables are the only place the keys are written; mappings and request bodies read
/// them from here. Each table is a packed sequence of pointers to constant ASCII strings, one per field,
/// in field order, with nothing else in it.

/// Keys of a reservation (and of the create-reservation body).
struct VLMSDKReservationJSONKeyesType {
    const char* checkinID;          ///< "checkin_id"
    const char* userID;             ///< "user_id"
    const char* venueID;            ///< "venue_id"
    const char* confirmationID;     ///< "confirmation_id"
    const char* reservationNumber;  ///< "reservation_number"
    const char* checkinDate;        ///< "checkin_date"
    const char* checkoutDate;       ///< "checkout_date"
    const char* currencyCode;       ///< "currency_code"
    const char* totalStayAmount;    ///< "total_stay_amount"
    const char* roomNumber;         ///< "room_number"
    const char* lastName;           ///< "last_name": the create-reservation body only, never mapped
    const char* guests;             ///< "guests"
    const char* notSyncedAmount;    ///< "not_synced_amount"
    const char* checkinIsAvailable; ///< "checkin_is_available"
    const char* reservationInfo;    ///< "reservation_info"
    const char* outstandingAmount;  ///< "outstanding_amount"
    const char* status;             ///< "status"
    const char* clientNumber;       ///< "client_number"
};

/// Keys of a guest named on a reservation.
struct VLMSDKReservationGuestJSONKeyesType {
    const char* firstName;    ///< "first_name"
    const char* lastName;     ///< "last_name"
    const char* profileCode;  ///< "profile_code"
};

/// Keys of a folio (master bill). Its currency travels under "currency", unlike a posting's.
struct VLMSDKFolioJSONKeyesType {
    const char* folioID;            ///< "folio_id"
    const char* outstandingAmount;  ///< "outstanding_amount"
    const char* currency;           ///< "currency"
    const char* transactions;       ///< "transactions": the postings
};

/// Keys of one posting on a folio.
struct VLMSDKFolioDeliverableItemJSONKeyesType {
    const char* postingName;   ///< "posting_name"
    const char* postingCode;   ///< "posting_code"
    const char* amount;        ///< "amount"
    const char* currencyCode;  ///< "currency_code"
};

extern const VLMSDKReservationJSONKeyesType VLMSDKReservationJSONKeyes;
extern const VLMSDKReservationGuestJSONKeyesType VLMSDKReservationGuestJSONKeyes;
extern const VLMSDKFolioJSONKeyesType VLMSDKFolioJSONKeyes;
extern const VLMSDKFolioDeliverableItemJSONKeyesType VLMSDKFolioDeliverableItemJSONKeyes;

VLMSDK_API_END
