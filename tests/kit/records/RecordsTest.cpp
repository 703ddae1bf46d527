#include "TestSupport.h"

#include <VLMSDKCoreKit/VLMSDKDefaults.h>
#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

using records_test::address;
using namespace std::chrono;

static_assert(sizeof(VLMSDKReservationStatus) == sizeof(void*));
static_assert(std::is_signed_v<std::underlying_type_t<VLMSDKReservationStatus>>);

TEST(Records, NewRecordsStartWithTheirDefaults) {
    VLMSDKReservation reservation;
    EXPECT_EQ(reservation.priceCurrencyCode(), std::optional<std::string>(kVLMSDKDefaultCurrencyCode));
    EXPECT_FALSE(reservation.isMobileCheckinOpen());
    EXPECT_FALSE(reservation.velmoraID());
    EXPECT_FALSE(reservation.statusStringRepresentation());
    EXPECT_FALSE(reservation.checkinDate());
    EXPECT_FALSE(reservation.totalStayPriceAmount());
    EXPECT_TRUE(reservation.guests().empty());
    EXPECT_EQ(reservation.status(), VLMSDKReservationStatusUnknown);

    VLMSDKReservationGuest guest;
    EXPECT_FALSE(guest.firstName());
    EXPECT_FALSE(guest.lastName());
    EXPECT_FALSE(guest.profileCode());

    VLMSDKFolio folio;  // unlike the reservation and the posting, no default currency
    EXPECT_FALSE(folio.folioID());
    EXPECT_FALSE(folio.outstandingAmount());
    EXPECT_FALSE(folio.paymentCurrency());
    EXPECT_TRUE(folio.deliverables().empty());

    VLMSDKFolioDeliverableItem item;
    EXPECT_EQ(item.currency(), std::optional<std::string>(kVLMSDKDefaultCurrencyCode));
    EXPECT_FALSE(item.name());
    EXPECT_FALSE(item.code());
    EXPECT_FALSE(item.price());

    // The descriptors make records with the same defaults (the mapper and the coder make them that way).
    auto made = std::dynamic_pointer_cast<VLMSDKReservation>(VLMSDKReservation::classDescriptor().makeInstance());
    ASSERT_TRUE(made);
    EXPECT_EQ(made->priceCurrencyCode(), std::optional<std::string>(kVLMSDKDefaultCurrencyCode));
    auto madeItem = std::dynamic_pointer_cast<VLMSDKFolioDeliverableItem>(
        VLMSDKFolioDeliverableItem::classDescriptor().makeInstance());
    ASSERT_TRUE(madeItem);
    EXPECT_EQ(madeItem->currency(), std::optional<std::string>(kVLMSDKDefaultCurrencyCode));
}

TEST(Records, StatusFollowsTheExactStatusWord) {
    struct Row {
        std::optional<std::string> word;
        VLMSDKReservationStatus expected;
    };
    const Row rows[] = {
        {"reserved", VLMSDKReservationStatusReserved},
        {"in_house", VLMSDKReservationStatusInHouse},
        {"checked_out", VLMSDKReservationStatusCheckedOut},
        {std::nullopt, VLMSDKReservationStatusUnknown},
        {"", VLMSDKReservationStatusUnknown},
        {"Reserved", VLMSDKReservationStatusUnknown},
        {"IN_HOUSE", VLMSDKReservationStatusUnknown},
        {"Checked_Out", VLMSDKReservationStatusUnknown},
        {"checked out", VLMSDKReservationStatusUnknown},
        {" reserved", VLMSDKReservationStatusUnknown},
        {"reserved ", VLMSDKReservationStatusUnknown},
        {std::string("in_house\0", 9), VLMSDKReservationStatusUnknown},
        {"cancelled", VLMSDKReservationStatusUnknown},
    };
    VLMSDKReservation reservation;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.word ? "\"" + *row.word + "\"" : std::string("absent"));
        reservation.setStatusStringRepresentation(row.word);
        EXPECT_EQ(reservation.status(), row.expected);
    }
    EXPECT_EQ(VLMSDKReservationStatusUnknown, 0);
    EXPECT_EQ(VLMSDKReservationStatusReserved, 1);
    EXPECT_EQ(VLMSDKReservationStatusInHouse, 2);
    EXPECT_EQ(VLMSDKReservationStatusCheckedOut, 3);
}

TEST(Records, StatusIsRecomputedOnEveryCall) {
    VLMSDKReservation reservation;
    reservation.setStatusStringRepresentation("reserved");
    EXPECT_EQ(reservation.status(), VLMSDKReservationStatusReserved);
    reservation.setStatusStringRepresentation("checked_out");
    EXPECT_EQ(reservation.status(), VLMSDKReservationStatusCheckedOut);
    reservation.setStatusStringRepresentation(std::nullopt);
    EXPECT_EQ(reservation.status(), VLMSDKReservationStatusUnknown);
}

TEST(Records, AbsentValuesDescribeAsNull) {
    VLMSDKReservation reservation;
    reservation.setPriceCurrencyCode(std::nullopt);
    reservation.setGuests({std::make_shared<VLMSDKReservationGuest>()});
    EXPECT_EQ(reservation.description(),
              "VLMSDKReservation " + address(&reservation) +
                  "; guestVelmoraID (null); venueVelmoraID (null); externalReservationID (null); "
                  "internalReservationID (null); priceCurrencyCode (null); checkinDate (null); checkoutDate (null); "
                  "totalStayPriceAmount (null); roomNumber (null); isMobileCheckinOpen 0; reservationInfo (null); "
                  "checkinVelmoraID (null), remainPriceAmountToPay (null), status (null), clientSideID (null)");

    VLMSDKReservationGuest guest;
    EXPECT_EQ(guest.description(),
              "VLMSDKReservationGuest " + address(&guest) + "; firstName (null); lastName (null); profileCode (null)");

    VLMSDKFolio folio;
    folio.setDeliverables(
        {std::make_shared<VLMSDKFolioDeliverableItem>(), std::make_shared<VLMSDKFolioDeliverableItem>()});
    EXPECT_EQ(folio.description(),
              "VLMSDKFolio " + address(&folio) + "; folioID (null); outstandingAmount (null); paymentCurrency (null)");

    VLMSDKFolioDeliverableItem item;
    item.setCurrency(std::nullopt);
    EXPECT_EQ(item.description(), "VLMSDKFolioDeliverableItem " + address(&item) +
                                      "; name (null); code (null); currency (null); price (null)");
}

TEST(Records, FilledValuesDescribeInTheirFormats) {
    VLMSDKReservation reservation;
    reservation.setVelmoraID("res-1");
    reservation.setGuestVelmoraID("u-1");
    reservation.setVenueVelmoraID("v-2");
    reservation.setExternalReservationID("CONF-77");
    reservation.setInternalReservationID("42");
    reservation.setPriceCurrencyCode("EUR");
    reservation.setCheckinDate(sys_days(2026y / November / 21));
    reservation.setCheckoutDate(sys_days(2026y / December / 3));
    reservation.setTotalStayPriceAmount(450.5);
    reservation.setRoomNumber("0712");
    reservation.setMobileCheckinOpen(true);
    reservation.setReservationInfo("Late arrival");
    reservation.setCheckinVelmoraID("c-3");
    reservation.setRemainPriceAmountToPay(12);
    reservation.setStatusStringRepresentation("in_house");
    reservation.setClientSideID("CL-9");
    reservation.setNotSyncedPaidPriceAmount(99.25);  // never printed
    EXPECT_EQ(reservation.description(),
              "VLMSDKReservation " + address(&reservation) +
                  "; guestVelmoraID u-1; venueVelmoraID v-2; externalReservationID CONF-77; internalReservationID 42; "
                  "priceCurrencyCode EUR; checkinDate 2026-11-21 00:00:00 +0000; checkoutDate 2026-12-03 00:00:00 "
                  "+0000; totalStayPriceAmount 450.5; roomNumber 0712; isMobileCheckinOpen 1; reservationInfo Late "
                  "arrival; checkinVelmoraID c-3, remainPriceAmountToPay 12, status in_house, clientSideID CL-9");

    VLMSDKReservationGuest guest;
    guest.setFirstName("Ada");
    guest.setLastName("Lovelace");
    guest.setProfileCode("P-1");
    std::ostringstream streamed;
    streamed << guest;
    EXPECT_EQ(streamed.str(),
              "VLMSDKReservationGuest " + address(&guest) + "; firstName Ada; lastName Lovelace; profileCode P-1");

    VLMSDKFolio folio;
    folio.setFolioID("F-1");
    folio.setOutstandingAmount(-0.5);
    folio.setPaymentCurrency("GBP");
    EXPECT_EQ(folio.description(),
              "VLMSDKFolio " + address(&folio) + "; folioID F-1; outstandingAmount -0.5; paymentCurrency GBP");

    // Numbers print as the shortest text that reads back to the same double.
    struct Row {
        double price;
        const char* text;
    };
    const Row rows[] = {
        {9.9, "9.9"},   {12, "12"},        {0.1 + 0.2, "0.30000000000000004"}, {-5, "-5"},
        {-0.0, "-0"},   {1e21, "1e+21"},  {123456789012, "123456789012"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        VLMSDKFolioDeliverableItem item;
        item.setName("Minibar");
        item.setCode("MB");
        item.setPrice(row.price);
        EXPECT_EQ(item.description(), "VLMSDKFolioDeliverableItem " + address(&item) +
                                          "; name Minibar; code MB; currency " + kVLMSDKDefaultCurrencyCode +
                                          "; price " + row.text);
    }
}

TEST(Records, PayResultHoldsWhatItWasGiven) {
    auto reservation = std::make_shared<VLMSDKReservation>();
    auto transaction = std::make_shared<VLMSDKPaymentTransaction>();

    auto withoutTransaction = VLMSDKPayForReservationResult::initWithTransaction(nullptr, reservation);
    ASSERT_TRUE(withoutTransaction);
    EXPECT_EQ(withoutTransaction->reservation(), reservation);
    EXPECT_EQ(withoutTransaction->paymentTransaction(), nullptr);

    auto both = VLMSDKPayForReservationResult::initWithTransaction(transaction, reservation);
    ASSERT_TRUE(both);
    EXPECT_EQ(both->reservation(), reservation);
    EXPECT_EQ(both->paymentTransaction(), transaction);

    auto neither = VLMSDKPayForReservationResult::initWithTransaction(nullptr, nullptr);
    ASSERT_TRUE(neither);
    EXPECT_EQ(neither->reservation(), nullptr);
    EXPECT_EQ(neither->paymentTransaction(), nullptr);

    // No description of its own: the root's "<ClassName: address>".
    EXPECT_EQ(both->description(), "<VLMSDKPayForReservationResult: " + address(both.get()) + ">");
    EXPECT_EQ(&both->objectClass(), &VLMSDKPayForReservationResult::classDescriptor());
}

}  // namespace
