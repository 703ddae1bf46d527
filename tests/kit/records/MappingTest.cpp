#include "TestSupport.h"

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKCoreKit/VLMSDKDefaults.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace {

using namespace std::chrono;

const VLMSDKJSON kReservationReply = VLMSDKJSON::parse(R"({
    "id": "res-8841",
    "checkin_id": "chk-31",
    "user_id": 5521,
    "venue_id": "venue-7",
    "confirmation_id": "CONF-2026-118",
    "reservation_number": "PMS-000912",
    "checkin_date": "2026-11-21",
    "checkout_date": "2026-11-24",
    "currency_code": "eur",
    "total_stay_amount": 612.75,
    "room_number": "0712",
    "last_name": "Reservation-Level Name",
    "guests": [
        {"first_name": "Ada", "last_name": "Lovelace", "profile_code": "PR-1"},
        {"first_name": "Charles", "last_name": "Babbage", "profile_code": "PR-2"},
        {"first_name": "Mary", "last_name": "Somerville", "profile_code": "PR-3"}
    ],
    "not_synced_amount": -40.5,
    "checkin_is_available": true,
    "reservation_info": "Late arrival, quiet room",
    "outstanding_amount": 212.25,
    "status": "in_house",
    "client_number": "CL-77"
})");

// Whether the error, or one it wraps, names `text` in its developer message.
bool mentions(const VLMErrorPtr& error, const std::string& text) {
    for (VLMErrorPtr e = error; e; e = e->underlyingError()) {
        if (e->developerMessage().find(text) != std::string::npos) return true;
    }
    return false;
}

std::shared_ptr<const VLMSDKMappingResult> mapReservation(const VLMSDKJSON& json) {
    return VLMSDKMapper::objectFromJSON(json, VLMSDKReservation::objectMapping());
}

TEST(ReservationMapping, FillsEveryPropertyFromItsKey) {
    const auto mapped = mapReservation(kReservationReply);
    ASSERT_TRUE(mapped);
    ASSERT_FALSE(mapped->error()) << mapped->error()->description();
    const auto reservation = mapped->resultAs<VLMSDKReservation>();
    ASSERT_TRUE(reservation);

    EXPECT_EQ(reservation->velmoraID(), "res-8841");
    EXPECT_EQ(reservation->checkinVelmoraID(), "chk-31");
    EXPECT_EQ(reservation->guestVelmoraID(), "5521");  // an integer identifier becomes its text
    EXPECT_EQ(reservation->venueVelmoraID(), "venue-7");
    EXPECT_EQ(reservation->externalReservationID(), "CONF-2026-118");
    EXPECT_EQ(reservation->internalReservationID(), "PMS-000912");
    EXPECT_EQ(reservation->checkinDate(), sys_days(2026y / November / 21));
    EXPECT_EQ(reservation->checkoutDate(), sys_days(2026y / November / 24));
    EXPECT_EQ(reservation->priceCurrencyCode(), "EUR");
    EXPECT_EQ(reservation->totalStayPriceAmount(), 612.75);
    EXPECT_EQ(reservation->roomNumber(), "0712");
    EXPECT_EQ(reservation->notSyncedPaidPriceAmount(), 40.5);
    EXPECT_TRUE(reservation->isMobileCheckinOpen());
    EXPECT_EQ(reservation->reservationInfo(), "Late arrival, quiet room");
    EXPECT_EQ(reservation->remainPriceAmountToPay(), 212.25);
    EXPECT_EQ(reservation->statusStringRepresentation(), "in_house");
    EXPECT_EQ(reservation->status(), VLMSDKReservationStatusInHouse);
    EXPECT_EQ(reservation->clientSideID(), "CL-77");

    const std::vector<std::vector<std::string>> expectedGuests{
        {"Ada", "Lovelace", "PR-1"}, {"Charles", "Babbage", "PR-2"}, {"Mary", "Somerville", "PR-3"}};
    ASSERT_EQ(reservation->guests().size(), expectedGuests.size());
    for (std::size_t i = 0; i < expectedGuests.size(); ++i) {
        SCOPED_TRACE(i);
        const auto& guest = reservation->guests()[i];
        ASSERT_TRUE(guest);
        EXPECT_EQ(guest->firstName(), expectedGuests[i][0]);
        EXPECT_EQ(guest->lastName(), expectedGuests[i][1]);
        EXPECT_EQ(guest->profileCode(), expectedGuests[i][2]);
    }

    // "last_name" at reservation level fills nothing.
    for (const auto& property : VLMSDKReservation::classDescriptor().properties()) {
        SCOPED_TRACE(property.name());
        const auto value = property.get(*reservation);
        const auto* text = std::get_if<std::string>(&value);
        EXPECT_FALSE(text && *text == "Reservation-Level Name");
    }
}

TEST(ReservationMapping, LeavesMissingKeysAtTheirDefaults) {
    const auto mapped = mapReservation(VLMSDKJSON::parse(R"({"last_name": "Only", "total_stay_amount": "99.90"})"));
    ASSERT_FALSE(mapped->error()) << mapped->error()->description();
    const auto reservation = mapped->resultAs<VLMSDKReservation>();
    ASSERT_TRUE(reservation);
    EXPECT_EQ(reservation->priceCurrencyCode(), kVLMSDKDefaultCurrencyCode);
    EXPECT_FALSE(reservation->isMobileCheckinOpen());
    EXPECT_TRUE(reservation->guests().empty());
    EXPECT_FALSE(reservation->notSyncedPaidPriceAmount());
    EXPECT_EQ(reservation->status(), VLMSDKReservationStatusUnknown);
    // Plain number properties take numeric text as its number.
    EXPECT_EQ(reservation->totalStayPriceAmount(), 99.9);
}

TEST(ReservationMapping, NotSyncedAmountIsStoredAsAMagnitude) {
    struct Row {
        const char* label;
        VLMSDKJSON amount;
        double expected;
    };
    const Row rows[] = {
        {"negative number", -12.3, 12.3},
        {"negative text", "-12.3", 12.3},
        {"positive number", 25.5, 25.5},
        {"positive text", "25.5", 25.5},
        {"zero", 0, -0.0},
        {"text with no number", "abc", -0.0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const auto mapped = mapReservation({{VLMSDKReservationJSONKeyes.notSyncedAmount, row.amount}});
        ASSERT_FALSE(mapped->error()) << mapped->error()->description();
        const auto amount = mapped->resultAs<VLMSDKReservation>()->notSyncedPaidPriceAmount();
        ASSERT_TRUE(amount);
        EXPECT_EQ(*amount, row.expected);
        EXPECT_EQ(std::signbit(*amount), std::signbit(row.expected));
    }
}

TEST(ReservationMapping, ReportsRepliesItCannotMap) {
    struct Row {
        const char* label;
        VLMSDKJSON reply;
        std::optional<std::string> keyNamed;
    };
    auto with = [](const char* key, VLMSDKJSON value) {
        VLMSDKJSON reply = kReservationReply;
        reply[key] = std::move(value);
        return reply;
    };
    const auto& keys = VLMSDKReservationJSONKeyes;
    const Row rows[] = {
        {"reply is an array", VLMSDKJSON::array({kReservationReply}), std::nullopt},
        {"reply is text", VLMSDKJSON("reservation"), std::nullopt},
        {"date in another format", with(keys.checkinDate, "21/11/2026"), keys.checkinDate},
        {"impossible date", with(keys.checkoutDate, "2026-02-30"), keys.checkoutDate},
        {"guest that is not an object", with(keys.guests, VLMSDKJSON::array({"Ada Lovelace"})), keys.guests},
        {"guests that are not an array", with(keys.guests, VLMSDKJSON::object({{"first_name", "Ada"}})), keys.guests},
        {"amount text that is no number", with(keys.totalStayAmount, "a lot"), keys.totalStayAmount},
        // A positive amount stays text, and the mapper cannot read text that is no number.
        {"not-synced text with a positive prefix", with(keys.notSyncedAmount, "12abc"), keys.notSyncedAmount},
        {"status that is not text", with(keys.status, VLMSDKJSON::array({"in_house"})), keys.status},
        {"currency that is not text", with(keys.currencyCode, 978), keys.currencyCode},
        {"identifier that is an object", with(keys.venueID, VLMSDKJSON::object()), keys.venueID},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const auto mapped = mapReservation(row.reply);
        ASSERT_TRUE(mapped);
        EXPECT_FALSE(mapped->result());
        ASSERT_TRUE(mapped->error());
        EXPECT_EQ(mapped->error()->domain(), kVLMSDKMappingErrorDomain);
        EXPECT_EQ(mapped->error()->code(), VLMErrorCode::Mapping);
        if (row.keyNamed) {
            EXPECT_TRUE(mentions(mapped->error(), *row.keyNamed)) << mapped->error()->description();
        }
    }
}

TEST(ReservationMapping, MapsEveryKeyButLastNameExactlyOnce) {
    const auto mapping = VLMSDKReservation::objectMapping();
    ASSERT_EQ(&mapping->objectClass(), &VLMSDKReservation::classDescriptor());

    const auto& keys = VLMSDKReservationJSONKeyes;
    const std::map<std::string, std::string> expected{
        {VLMSDKObject::kVelmoraIDJSONKey, "velmoraID"},
        {keys.confirmationID, "externalReservationID"},
        {keys.reservationNumber, "internalReservationID"},
        {keys.totalStayAmount, "totalStayPriceAmount"},
        {keys.clientNumber, "clientSideID"},
        {keys.roomNumber, "roomNumber"},
        {keys.checkinIsAvailable, "mobileCheckinOpen"},
        {keys.reservationInfo, "reservationInfo"},
        {keys.outstandingAmount, "remainPriceAmountToPay"},
        {keys.status, "statusStringRepresentation"},
        {keys.currencyCode, "priceCurrencyCode"},
        {keys.checkinDate, "checkinDate"},
        {keys.checkoutDate, "checkoutDate"},
        {keys.notSyncedAmount, "notSyncedPaidPriceAmount"},
        {keys.userID, "guestVelmoraID"},
        {keys.checkinID, "checkinVelmoraID"},
        {keys.venueID, "venueVelmoraID"},
        {keys.guests, "guests"},
    };
    std::map<std::string, std::string> actual;
    std::multiset<std::string> filledProperties;
    for (const auto& entry : mapping->entries()) {
        ASSERT_TRUE(entry.property) << entry.jsonKey;
        EXPECT_TRUE(actual.emplace(entry.jsonKey, entry.property->name()).second) << "mapped twice: " << entry.jsonKey;
        filledProperties.insert(entry.property->name());
    }
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(actual.count(keys.lastName), 0u);
    // Every stored property is filled by exactly one entry.
    for (const auto& property : VLMSDKReservation::classDescriptor().properties()) {
        EXPECT_EQ(filledProperties.count(property.name()), 1u) << property.name();
    }

    // The identifier entry comes first and the guest list last, as a has-many of guests.
    ASSERT_FALSE(mapping->entries().empty());
    EXPECT_EQ(mapping->entries().front().property->name(), "velmoraID");
    const auto& last = mapping->entries().back();
    EXPECT_EQ(last.kind, VLMSDKObjectMapping::EntryKind::HasMany);
    EXPECT_EQ(last.elementClass, &VLMSDKReservationGuest::classDescriptor());
}

const VLMSDKJSON kFolioReply = VLMSDKJSON::parse(R"({
    "folio_id": "FOL-2291",
    "outstanding_amount": "120.40",
    "currency": "gbp",
    "transactions": [
        {"posting_name": "Room charge", "posting_code": "RM", "amount": "95.00", "currency_code": "gbp"},
        {"posting_name": "Minibar", "posting_code": "MB", "amount": 12},
        {"posting_name": "Deposit refund", "posting_code": "DR", "amount": "-5.00", "currency_code": "GBP"},
        {"posting_name": "Adjustment", "posting_code": "ADJ", "amount": "n/a"}
    ]
})");

TEST(FolioMapping, FillsTheFolioAndItsPostingsInOrder) {
    const auto mapped = VLMSDKMapper::objectFromJSON(kFolioReply, VLMSDKFolio::objectMapping());
    ASSERT_FALSE(mapped->error()) << mapped->error()->description();
    const auto folio = mapped->resultAs<VLMSDKFolio>();
    ASSERT_TRUE(folio);
    EXPECT_EQ(folio->folioID(), "FOL-2291");
    EXPECT_EQ(folio->outstandingAmount(), 120.4);
    EXPECT_EQ(folio->paymentCurrency(), "GBP");

    struct Posting {
        const char* name;
        const char* code;
        const char* currency;
        double price;
    };
    const Posting expected[] = {
        {"Room charge", "RM", "GBP", 95},
        {"Minibar", "MB", kVLMSDKDefaultCurrencyCode, 12},
        {"Deposit refund", "DR", "GBP", -5},
        {"Adjustment", "ADJ", kVLMSDKDefaultCurrencyCode, 0},
    };
    ASSERT_EQ(folio->deliverables().size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(i);
        const auto& item = folio->deliverables()[i];
        ASSERT_TRUE(item);
        EXPECT_EQ(item->name(), expected[i].name);
        EXPECT_EQ(item->code(), expected[i].code);
        EXPECT_EQ(item->currency(), expected[i].currency);
        EXPECT_EQ(item->price(), expected[i].price);
    }
}

TEST(FolioMapping, ReportsRepliesItCannotMap) {
    struct Row {
        const char* label;
        VLMSDKJSON reply;
        std::string keyNamed;
    };
    auto with = [](const char* key, VLMSDKJSON value) {
        VLMSDKJSON reply = kFolioReply;
        reply[key] = std::move(value);
        return reply;
    };
    const auto& keys = VLMSDKFolioJSONKeyes;
    const Row rows[] = {
        {"postings that are not an array", with(keys.transactions, "none"), keys.transactions},
        {"posting that is not an object", with(keys.transactions, VLMSDKJSON::array({12})), keys.transactions},
        {"outstanding amount text that is no number", with(keys.outstandingAmount, "open"), keys.outstandingAmount},
        {"currency that is not text", with(keys.currency, VLMSDKJSON::array()), keys.currency},
        {"posting name that is not text",
         with(keys.transactions, VLMSDKJSON::parse(R"([{"posting_name": {"en": "Spa"}}])")), "posting_name"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const auto mapped = VLMSDKMapper::objectFromJSON(row.reply, VLMSDKFolio::objectMapping());
        EXPECT_FALSE(mapped->result());
        ASSERT_TRUE(mapped->error());
        EXPECT_EQ(mapped->error()->domain(), kVLMSDKMappingErrorDomain);
        EXPECT_TRUE(mentions(mapped->error(), row.keyNamed)) << mapped->error()->description();
    }
}

TEST(FolioMapping, MapsEveryKeyOfBothTablesExactlyOnce) {
    struct Case {
        const char* label;
        std::shared_ptr<const VLMSDKObjectMapping> mapping;
        const VLMSDKClass* objectClass;
        std::map<std::string, std::string> expected;
    };
    const Case cases[] = {
        {"folio", VLMSDKFolio::objectMapping(), &VLMSDKFolio::classDescriptor(),
         {{VLMSDKFolioJSONKeyes.folioID, "folioID"},
          {VLMSDKFolioJSONKeyes.outstandingAmount, "outstandingAmount"},
          {VLMSDKFolioJSONKeyes.transactions, "deliverables"},
          {VLMSDKFolioJSONKeyes.currency, "paymentCurrency"}}},
        {"posting", VLMSDKFolioDeliverableItem::objectMapping(), &VLMSDKFolioDeliverableItem::classDescriptor(),
         {{VLMSDKFolioDeliverableItemJSONKeyes.postingName, "name"},
          {VLMSDKFolioDeliverableItemJSONKeyes.postingCode, "code"},
          {VLMSDKFolioDeliverableItemJSONKeyes.currencyCode, "currency"},
          {VLMSDKFolioDeliverableItemJSONKeyes.amount, "price"}}},
        {"guest", VLMSDKReservationGuest::objectMapping(), &VLMSDKReservationGuest::classDescriptor(),
         {{VLMSDKReservationGuestJSONKeyes.firstName, "firstName"},
          {VLMSDKReservationGuestJSONKeyes.lastName, "lastName"},
          {VLMSDKReservationGuestJSONKeyes.profileCode, "profileCode"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(&c.mapping->objectClass(), c.objectClass);
        std::map<std::string, std::string> actual;
        for (const auto& entry : c.mapping->entries()) {
            ASSERT_TRUE(entry.property) << entry.jsonKey;
            EXPECT_TRUE(actual.emplace(entry.jsonKey, entry.property->name()).second)
                << "mapped twice: " << entry.jsonKey;
        }
        EXPECT_EQ(actual, c.expected);
    }
    // Only the posting amount is converted; the folio's outstanding amount is plain.
    for (const auto& entry : VLMSDKFolio::objectMapping()->entries()) {
        if (entry.jsonKey == VLMSDKFolioJSONKeyes.outstandingAmount) {
            EXPECT_EQ(entry.kind, VLMSDKObjectMapping::EntryKind::Plain);
        }
        if (entry.jsonKey == VLMSDKFolioJSONKeyes.transactions) {
            EXPECT_EQ(entry.kind, VLMSDKObjectMapping::EntryKind::HasMany);
            EXPECT_EQ(entry.elementClass, &VLMSDKFolioDeliverableItem::classDescriptor());
        }
    }
}

TEST(Mapping, NoRecordOffersASerializationMapping) {
    for (const VLMSDKClass* objectClass :
         {&VLMSDKReservation::classDescriptor(), &VLMSDKReservationGuest::classDescriptor(),
          &VLMSDKFolio::classDescriptor(), &VLMSDKFolioDeliverableItem::classDescriptor()}) {
        SCOPED_TRACE(objectClass->name());
        EXPECT_TRUE(objectClass->operations().objectMapping);
        EXPECT_FALSE(objectClass->operations().serializationMapping);
    }
}

}  // namespace
