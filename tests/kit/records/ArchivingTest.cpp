#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace std::chrono;

std::shared_ptr<VLMSDKReservationGuest> makeGuest(std::string first, std::string last, std::string code) {
    auto guest = std::make_shared<VLMSDKReservationGuest>();
    guest->setFirstName(std::move(first));
    guest->setLastName(std::move(last));
    guest->setProfileCode(std::move(code));
    return guest;
}

// Every archived property set to a value other than its default.
std::shared_ptr<VLMSDKReservation> makeFilledReservation() {
    auto reservation = std::make_shared<VLMSDKReservation>();
    reservation->setVelmoraID("res-8841");
    reservation->setGuestVelmoraID("5521");
    reservation->setVenueVelmoraID("venue-7");
    reservation->setExternalReservationID("CONF-2026-118");
    reservation->setInternalReservationID("PMS-000912");
    reservation->setPriceCurrencyCode("EUR");
    reservation->setCheckinDate(sys_days(2026y / November / 21));
    reservation->setCheckoutDate(sys_days(2026y / November / 24));
    reservation->setTotalStayPriceAmount(0.1 + 0.2);
    reservation->setRoomNumber("0712");
    reservation->setGuests({makeGuest("Ada", "Lovelace", "PR-1"), makeGuest("Charles", "Babbage", "PR-2")});
    reservation->setNotSyncedPaidPriceAmount(-0.0);
    reservation->setMobileCheckinOpen(true);
    reservation->setReservationInfo("Late arrival, \"quiet\" room — ünïcode");
    reservation->setCheckinVelmoraID("chk-31");
    reservation->setRemainPriceAmountToPay(212.25);
    reservation->setStatusStringRepresentation("in_house");
    reservation->setClientSideID("");
    return reservation;
}

TEST(Archiving, ArchivedNamesResolveToTheRecordsProperties) {
    const auto& names = VLMSDKReservation::encodingProperties();
    ASSERT_EQ(names.size(), 18u);
    EXPECT_EQ(names.front(), "velmoraID");
    EXPECT_EQ(names[12], "mobileCheckinOpen");
    EXPECT_EQ(names.back(), "clientSideID");
    // All stored properties and nothing else: the derived status is no property.
    std::set<std::string> stored;
    for (const auto& property : VLMSDKReservation::classDescriptor().properties()) stored.insert(property.name());
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), stored);
    EXPECT_EQ(VLMSDKReservationGuest::encodingProperties(),
              (std::vector<std::string>{"firstName", "lastName", "profileCode"}));
}

TEST(Archiving, ReservationWithGuestsSurvivesARoundTrip) {
    const auto original = makeFilledReservation();
    VLMErrorPtr error;
    const std::vector<std::uint8_t> data = original->archivedData(&error);
    ASSERT_FALSE(error) << error->description();
    ASSERT_FALSE(data.empty());

    const auto restored = VLMSDKReservation::unarchivedFromData(data, &error);
    ASSERT_FALSE(error) << error->description();
    ASSERT_TRUE(restored);
    EXPECT_EQ(&restored->objectClass(), &VLMSDKReservation::classDescriptor());

    // Compare each archived property by name, so a name that reaches no property fails here too.
    const VLMSDKClass& descriptor = VLMSDKReservation::classDescriptor();
    for (const std::string& name : VLMSDKReservation::encodingProperties()) {
        SCOPED_TRACE(name);
        const VLMSDKProperty* property = descriptor.propertyNamed(name);
        ASSERT_NE(property, nullptr);
        if (name == "guests") continue;  // records: compared below, by value
        EXPECT_EQ(property->get(*restored), property->get(*original));
    }
    EXPECT_TRUE(std::signbit(*restored->notSyncedPaidPriceAmount()));
    EXPECT_EQ(restored->status(), VLMSDKReservationStatusInHouse);

    ASSERT_EQ(restored->guests().size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        const auto& guest = restored->guests()[i];
        ASSERT_TRUE(guest);
        EXPECT_EQ(&guest->objectClass(), &VLMSDKReservationGuest::classDescriptor());
        EXPECT_NE(guest, original->guests()[i]);
        EXPECT_EQ(guest->firstName(), original->guests()[i]->firstName());
        EXPECT_EQ(guest->lastName(), original->guests()[i]->lastName());
        EXPECT_EQ(guest->profileCode(), original->guests()[i]->profileCode());
    }
}

TEST(Archiving, AbsentValuesStayAbsent) {
    VLMSDKReservation empty;
    empty.setPriceCurrencyCode(std::nullopt);
    VLMErrorPtr error;
    const auto restored = VLMSDKReservation::unarchivedFromData(empty.archivedData(&error), &error);
    ASSERT_FALSE(error) << error->description();
    ASSERT_TRUE(restored);
    for (const auto& property : VLMSDKReservation::classDescriptor().properties()) {
        SCOPED_TRACE(property.name());
        EXPECT_EQ(property.get(*restored), property.get(empty));
    }

    const auto guest = makeGuest("Grace", "Hopper", "PR-9");
    guest->setLastName(std::nullopt);
    const auto restoredGuest = VLMSDKReservationGuest::unarchivedFromData(guest->archivedData(&error), &error);
    ASSERT_FALSE(error) << error->description();
    ASSERT_TRUE(restoredGuest);
    EXPECT_EQ(restoredGuest->firstName(), "Grace");
    EXPECT_FALSE(restoredGuest->lastName());
    EXPECT_EQ(restoredGuest->profileCode(), "PR-9");
}

TEST(Archiving, AnArchiveOfAnotherClassIsRefused) {
    VLMErrorPtr error;
    const auto guestData = makeGuest("Ada", "Lovelace", "PR-1")->archivedData(&error);
    ASSERT_FALSE(error);
    EXPECT_FALSE(VLMSDKReservation::unarchivedFromData(guestData, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), kVLMSDKArchiveErrorDomain);
}

TEST(Archiving, DamagedReservationArchivesFailWithAnError) {
    VLMErrorPtr error;
    const std::vector<std::uint8_t> data = makeFilledReservation()->archivedData(&error);
    ASSERT_FALSE(error);
    ASSERT_FALSE(data.empty());

    for (std::size_t length = 0; length < data.size(); ++length) {
        SCOPED_TRACE("truncated to " + std::to_string(length));
        VLMErrorPtr truncatedError;
        const std::vector<std::uint8_t> truncated(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(VLMSDKReservation::unarchivedFromData(truncated, &truncatedError));
        ASSERT_TRUE(truncatedError);
        EXPECT_EQ(truncatedError->domain(), kVLMSDKArchiveErrorDomain);
    }

    for (std::size_t index = 0; index < data.size(); ++index) {
        for (const std::uint8_t flip : {std::uint8_t{0x01}, std::uint8_t{0x80}, std::uint8_t{0xFF}}) {
            SCOPED_TRACE("byte " + std::to_string(index) + " xor " + std::to_string(flip));
            std::vector<std::uint8_t> damaged = data;
            damaged[index] ^= flip;
            VLMErrorPtr damagedError;
            EXPECT_FALSE(VLMSDKReservation::unarchivedFromData(damaged, &damagedError));
            ASSERT_TRUE(damagedError);
        }
    }

    // A caller that gives no error out-parameter gets nullptr all the same.
    const std::vector<std::uint8_t> shortened(data.begin(), data.end() - 1);
    EXPECT_FALSE(VLMSDKReservation::unarchivedFromData(shortened, nullptr));
}

}  // namespace
