// The wake-up descriptor, whichever the build chose (an eventfd, or the portable pipe): signals from other
// threads end a wait, many of them count as one, and a drain makes the next wait block again.
#include "VLMSDKWakeup.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <thread>
#include <vector>

namespace {

bool readableWithin(const vlmsdk::detail::VLMSDKWakeup& wakeup, int milliseconds) {
    pollfd descriptor{wakeup.descriptor(), POLLIN, 0};
    return ::poll(&descriptor, 1, milliseconds) == 1 && (descriptor.revents & POLLIN);
}

TEST(Wakeup, SignalsFromAnyThreadEndAWaitAndADrainMakesTheNextOneBlock) {
    vlmsdk::detail::VLMSDKWakeup wakeup;
    ASSERT_TRUE(wakeup.valid());
    EXPECT_FALSE(readableWithin(wakeup, 0));
    for (int round = 0; round < 3; ++round) {
        std::vector<std::thread> signallers;
        // More signals than a pipe holds bytes: the surplus must neither block nor be lost as a wake-up.
        for (int t = 0; t < 4; ++t) {
            signallers.emplace_back([&] {
                for (int i = 0; i < 40000; ++i) wakeup.signal();
            });
        }
        EXPECT_TRUE(readableWithin(wakeup, 10000));
        for (auto& signaller : signallers) signaller.join();
        wakeup.drain();
        EXPECT_FALSE(readableWithin(wakeup, 0)) << "round " << round;
    }
}

}  // namespace
