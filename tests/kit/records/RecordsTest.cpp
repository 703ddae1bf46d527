#include <VLMSDKCoreKit/VLMSDKDefaults.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include "PrintedAddress.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdio>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

static_assert(sizeof(VLMSDKReservationStatus) == sizeof(void*));
static_assert(std::is_signed_v<std::underlying_type_t<VLMSDKReservationStatus>>);

template <class Record>
std::shared_ptr<Record> made() {
    return std::dynamic_pointer_cast<Record>(Record::classDescriptor().makeInstance());
}

// Hosts may read a table as a plain sequence of key pointers; this reads it that way.
template <std::size_t Count, class Table>
std::vector<std::string> keysInOrder(const Table& table) {
    const auto pointers = std::bit_cast<std::array<const char*, Count>>(table);
    return std::vector<std::string>(pointers.begin(), pointers.end());
}

TEST(KeyTables, ReadAsSequencesGiveEveryKeyInFieldOrder) {
    EXPECT_EQ(keysInOrder<18>(VLMSDKReservationJSONKeyes),
              (std::vector<std::string>{"checkin_id", "user_id", "venue_id", "confirmation_id", "reservation_number",
                                        "checkin_date", "checkout_date", "currency_code", "total_stay_amount",
                                        "room_number", "last_name", "guests", "not_synced_amount",
                                        "checkin_is_available", "reservation_info", "outstanding_amount", "status",
                                        "client_number"}));
    EXPECT_EQ(keysInOrder<3>(VLMSDKReservationGuestJSONKeyes),
              (std::vector<std::string>{"first_name", "last_name", "profile_code"}));
    EXPECT_EQ(keysInOrder<4>(VLMSDKFolioJSONKeyes),
              (std::vector<std::string>{"folio_id", "outstanding_amount", "currency", "transactions"}));
    EXPECT_EQ(keysInOrder<4>(VLMSDKFolioDeliverableItemJSONKeyes),
              (std::vector<std::string>{"posting_name", "posting_code", "amount", "currency_code"}));
}

TEST(Records, StatusFollowsTheExactStatusWordEachTimeItIsAsked) {
    const std::pair<std::optional<std::string>, VLMSDKReservationStatus> rows[] = {
        {"reserved", VLMSDKReservationStatusReserved},
        {"in_house", VLMSDKReservationStatusInHouse},
        {"checked_out", VLMSDKReservationStatusCheckedOut},
        {std::nullopt, VLMSDKReservationStatusUnknown},
        {"Reserved", VLMSDKReservationStatusUnknown},
        {"reserved ", VLMSDKReservationStatusUnknown},
        {std::string("in_house\0", 9), VLMSDKReservationStatusUnknown},
        {"cancelled", VLMSDKReservationStatusUnknown},
    };
    VLMSDKReservation reservation;  // one record throughout: the status follows every change of the word
    for (const auto& [word, expected] : rows) {
        SCOPED_TRACE(word ? "\"" + *word + "\"" : std::string("absent"));
        reservation.setStatusStringRepresentation(word);
        EXPECT_EQ(reservation.status(), expected);
    }
}

// Made by the descriptors, as the mapper and the coder make them: all absent but two currencies.
TEST(Records, NewRecordsDescribeAbsentValuesAsNull) {
    const auto reservation = made<VLMSDKReservation>();
    const auto guest = made<VLMSDKReservationGuest>();
    const auto folio = made<VLMSDKFolio>();
    const auto item = made<VLMSDKFolioDeliverableItem>();
    ASSERT_TRUE(reservation && guest && folio && item);
    EXPECT_EQ(reservation->priceCurrencyCode(), kVLMSDKDefaultCurrencyCode);
    EXPECT_EQ(item->currency(), kVLMSDKDefaultCurrencyCode);
    reservation->setPriceCurrencyCode(std::nullopt);
    reservation->setGuests({guest});
    EXPECT_EQ(reservation->description(),
              "VLMSDKReservation " + printedAddress(reservation.get()) +
                  "; guestVelmoraID (null); venueVelmoraID (null); externalReservationID (null); "
                  "internalReservationID (null); priceCurrencyCode (null); checkinDate (null); checkoutDate (null); "
                  "totalStayPriceAmount (null); roomNumber (null); isMobileCheckinOpen 0; reservationInfo (null); "
                  "checkinVelmoraID (null), remainPriceAmountToPay (null), status (null), clientSideID (null)");
    EXPECT_EQ(guest->description(), "VLMSDKReservationGuest " + printedAddress(guest.get()) +
                                        "; firstName (null); lastName (null); profileCode (null)");
    folio->setDeliverables({item});
    EXPECT_EQ(folio->description(), "VLMSDKFolio " + printedAddress(folio.get()) +
                                        "; folioID (null); outstandingAmount (null); paymentCurrency (null)");
    item->setCurrency(std::nullopt);
    EXPECT_EQ(item->description(), "VLMSDKFolioDeliverableItem " + printedAddress(item.get()) +
                                       "; name (null); code (null); currency (null); price (null)");
    // No description of its own: the root's "<ClassName: address>".
    const auto result = VLMSDKPayForReservationResult::initWithTransaction(nullptr, nullptr);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->description(), "<VLMSDKPayForReservationResult: " + printedAddress(result.get()) + ">");
}

// Every once-built class operation, by address, through the classes and through their descriptors.
std::vector<const void*> sharedObjects() {
    return {VLMSDKReservation::objectMapping().get(),
            VLMSDKReservationGuest::objectMapping().get(),
            VLMSDKFolio::objectMapping().get(),
            VLMSDKFolioDeliverableItem::objectMapping().get(),
            &VLMSDKReservation::encodingProperties(),
            &VLMSDKReservationGuest::encodingProperties(),
            VLMSDKReservation::classDescriptor().operations().objectMapping().get(),
            &VLMSDKReservationGuest::classDescriptor().operations().encodingProperties()};
}

// ctest runs each test in a process of its own, so these really are the first calls in the process.
TEST(SharedObjects, ConcurrentFirstCallsAllGetTheSameObjects) {
    std::vector<std::vector<const void*>> seen(8);
    std::latch start(static_cast<std::ptrdiff_t>(seen.size()));
    {
        std::vector<std::jthread> threads;
        for (auto& slot : seen) {
            threads.emplace_back([&, &out = slot] {
                start.arrive_and_wait();
                out = sharedObjects();
            });
        }
    }
    for (const auto& one : seen) EXPECT_EQ(one, seen.front());
    const auto& first = seen.front();
    for (const void* object : first) EXPECT_NE(object, nullptr);
    EXPECT_EQ(first, sharedObjects()) << "later calls return the same objects";
    EXPECT_EQ(first[6], first[0]) << "the descriptors hand out the classes' objects";
    EXPECT_EQ(first[7], first[5]);
}

}  // namespace
