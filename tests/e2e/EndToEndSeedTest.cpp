// Every seeded booking, read back through the kit's operations and mappings, against the seed file.
#include "EndToEndSupport.h"

#include <gtest/gtest.h>

namespace e2e {
namespace {

std::string bookingTrace(const nlohmann::json& booking) {
    return booking.at("id").get<std::string>() + " (" + booking.at("confirmation_id").get<std::string>() + ", " +
           booking.at("venue_id").get<std::string>() + ")";
}

template <class Record>
std::shared_ptr<Record> onlyRecord(const std::vector<Delivery>& deliveries) {
    EXPECT_EQ(deliveries.size(), 1u);
    if (deliveries.empty()) return nullptr;
    EXPECT_TRUE(deliveries[0].onMainThread);
    EXPECT_EQ(deliveries[0].error, nullptr) << deliveries[0].error->description();
    return std::dynamic_pointer_cast<Record>(deliveries[0].record);
}

TEST(EndToEndSeedTest, CreateFindsEveryBookingAndMapsItAsSeeded) {
    auto sandbox = startSandbox();
    ASSERT_GE(seed().at("bookings").size(), 10u);
    for (const auto& booking : seed().at("bookings")) {
        SCOPED_TRACE(bookingTrace(booking));
        Client client(sandbox->baseUrl(), kSandboxToken);
        auto deliveries = runAndSettle(client, [&](const VLMSDKAPIManager& api, DeliveryLog& log) {
            createReservationWithRequest(api,
                                         createRequest(booking.at("confirmation_id"), booking.at("venue_id"),
                                                       booking.at("booker").at("last_name")),
                                         log.completion<VLMSDKReservation>());
        });
        auto reservation = onlyRecord<VLMSDKReservation>(deliveries);
        ASSERT_TRUE(reservation);
        expectReservationMatchesBooking(*reservation, booking);
    }
}

TEST(EndToEndSeedTest, FetchAndFolioOfEveryReservationOnThePlatformMatchTheSeed) {
    auto sandbox = startSandbox();
    std::size_t onPlatform = 0;
    for (const auto& booking : seed().at("bookings")) {
        if (!booking.value("on_platform", false)) continue;
        ++onPlatform;
        SCOPED_TRACE(bookingTrace(booking));
        const std::string id = booking.at("id");

        Client client(sandbox->baseUrl(), kSandboxToken);
        DeliveryLog fetched;
        DeliveryLog billed;
        // Both in flight at once on one transport; each gets its own single delivery.
        fetchReservationWithID(client.api(), id, fetched.completion<VLMSDKReservation>());
        fetchReservationMasterBill(client.api(), id, billed.completion<VLMSDKFolio>());
        ASSERT_TRUE(fetched.waitFor());
        ASSERT_TRUE(billed.waitFor());
        client.settle();

        ASSERT_EQ(fetched.count(), 1u);
        ASSERT_EQ(billed.count(), 1u);
        EXPECT_TRUE(fetched.at(0).onMainThread);
        EXPECT_TRUE(billed.at(0).onMainThread);
        ASSERT_EQ(fetched.at(0).error, nullptr) << fetched.at(0).error->description();
        ASSERT_EQ(billed.at(0).error, nullptr) << billed.at(0).error->description();
        expectReservationMatchesBooking(*fetched.record<VLMSDKReservation>(), booking);
        expectFolioMatchesBooking(*billed.record<VLMSDKFolio>(), booking);
    }
    EXPECT_GE(onPlatform, 3u) << "the seed should put several reservations on the platform";
}

}  // namespace
}  // namespace e2e
