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
using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<VLMSDKReservationGuest> makeGuest(std::string first, std::optional<std::string> last,
                                                  std::string code) {
    auto guest = std::make_shared<VLMSDKReservationGuest>();
    guest->setFirstName(std::move(first));
    guest->setLastName(std::move(last));
    guest->setProfileCode(std::move(code));
    return guest;
}

// Every archived property set to a value other than its default; two guests, one of them without a last name.
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
    reservation->setGuests({makeGuest("Ada", "Lovelace", "PR-1"), makeGuest("Charles", std::nullopt, "PR-2")});
    reservation->setNotSyncedPaidPriceAmount(-0.0);
    reservation->setMobileCheckinOpen(true);
    reservation->setReservationInfo("Late arrival, \"quiet\" room — ünïcode");
    reservation->setCheckinVelmoraID("chk-31");
    reservation->setRemainPriceAmountToPay(212.25);
    reservation->setStatusStringRepresentation("in_house");
    reservation->setClientSideID("");
    return reservation;
}

// Every property of `restored` as in `original`; records in arrays are compared by their caller.
void expectSameProperties(const VLMSDKRootObject& restored, const VLMSDKRootObject& original) {
    for (const auto& property : original.objectClass().properties()) {
        SCOPED_TRACE(property.name());
        if (property.kind() == VLMSDKPropertyKind::ObjectArray) continue;
        EXPECT_EQ(property.get(restored), property.get(original));
    }
}

TEST(Archiving, EveryStoredPropertyIsArchived) {
    // All stored properties and nothing else: the derived status is no property.
    const auto& names = VLMSDKReservation::encodingProperties();
    std::set<std::string> stored;
    for (const auto& property : VLMSDKReservation::classDescriptor().properties()) stored.insert(property.name());
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), stored);
    EXPECT_EQ(names.size(), stored.size());
    EXPECT_EQ(VLMSDKReservationGuest::encodingProperties(),
              (std::vector<std::string>{"firstName", "lastName", "profileCode"}));
}

TEST(Archiving, ReservationWithGuestsSurvivesARoundTrip) {
    const auto original = makeFilledReservation();
    VLMErrorPtr error;
    const Bytes data = original->archivedData(&error);
    ASSERT_FALSE(error) << error->description();
    const auto restored = VLMSDKReservation::unarchivedFromData(data, &error);
    ASSERT_TRUE(restored) << error->description();
    EXPECT_EQ(&restored->objectClass(), &VLMSDKReservation::classDescriptor());
    expectSameProperties(*restored, *original);
    EXPECT_TRUE(std::signbit(*restored->notSyncedPaidPriceAmount()));
    EXPECT_EQ(restored->status(), VLMSDKReservationStatusInHouse);
    ASSERT_EQ(restored->guests().size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(&restored->guests()[i]->objectClass(), &VLMSDKReservationGuest::classDescriptor());
        expectSameProperties(*restored->guests()[i], *original->guests()[i]);
    }
}

TEST(Archiving, DamagedReservationArchivesFailWithAnError) {
    VLMErrorPtr error;
    const Bytes data = makeFilledReservation()->archivedData(&error);
    ASSERT_FALSE(error);
    const auto expectRefused = [](const Bytes& bytes) {
        VLMErrorPtr refusal;
        EXPECT_FALSE(VLMSDKReservation::unarchivedFromData(bytes, &refusal));
        ASSERT_TRUE(refusal);
        EXPECT_EQ(refusal->domain(), kVLMSDKArchiveErrorDomain);
        EXPECT_EQ(refusal->code(), VLMErrorCode::Archive);
    };
    for (std::size_t length = 0; length < data.size(); ++length) {
        SCOPED_TRACE("truncated to " + std::to_string(length));
        expectRefused(Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length)));
    }
    for (std::size_t index = 0; index < data.size(); ++index) {
        for (const std::uint8_t flip : {0x01, 0x80, 0xFF}) {
            SCOPED_TRACE("byte " + std::to_string(index) + " xor " + std::to_string(flip));
            Bytes damaged = data;
            damaged[index] ^= flip;
            expectRefused(damaged);
        }
    }
    Bytes longer = data;
    longer.push_back(0);
    expectRefused(longer);
    // A caller that gives no error out-parameter gets nullptr all the same.
    EXPECT_FALSE(VLMSDKReservation::unarchivedFromData(longer, nullptr));
}

}  // namespace
