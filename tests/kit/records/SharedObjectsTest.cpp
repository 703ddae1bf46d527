#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace {

// What a call of every once-built class operation returns, by address.
struct Snapshot {
    const void* reservationMapping;
    const void* guestMapping;
    const void* folioMapping;
    const void* itemMapping;
    const void* reservationNames;
    const void* guestNames;

    static Snapshot take() {
        return {VLMSDKReservation::objectMapping().get(),        VLMSDKReservationGuest::objectMapping().get(),
                VLMSDKFolio::objectMapping().get(),              VLMSDKFolioDeliverableItem::objectMapping().get(),
                &VLMSDKReservation::encodingProperties(),        &VLMSDKReservationGuest::encodingProperties()};
    }
    bool operator==(const Snapshot&) const = default;
};

// ctest runs each test in a process of its own, so these really are the first calls in the process.
TEST(SharedObjects, ConcurrentFirstCallsAllGetTheSameObjects) {
    constexpr int threadCount = 8;
    std::vector<Snapshot> seen(threadCount);
    std::latch start(threadCount);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < threadCount; ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                seen[i] = Snapshot::take();
            });
        }
    }
    for (int i = 0; i < threadCount; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(seen[i], seen[0]);
    }
    EXPECT_NE(seen[0].reservationMapping, nullptr);
    EXPECT_NE(seen[0].itemMapping, nullptr);
    EXPECT_EQ(Snapshot::take(), seen[0]);
    EXPECT_EQ(VLMSDKReservation::encodingProperties().size(), 18u);
    EXPECT_EQ(VLMSDKReservation::objectMapping()->entries().size(), 18u);
}

TEST(SharedObjects, LaterCallsReturnTheSameObjects) {
    const Snapshot first = Snapshot::take();
    EXPECT_EQ(Snapshot::take(), first);
    // The descriptors hand out the same objects as the classes.
    EXPECT_EQ(VLMSDKReservation::classDescriptor().operations().objectMapping().get(), first.reservationMapping);
    EXPECT_EQ(&VLMSDKReservation::classDescriptor().operations().encodingProperties(), first.reservationNames);
    EXPECT_EQ(VLMSDKFolioDeliverableItem::classDescriptor().operations().objectMapping().get(), first.itemMapping);
    EXPECT_EQ(&VLMSDKReservationGuest::classDescriptor().operations().encodingProperties(), first.guestNames);
}

}  // namespace
