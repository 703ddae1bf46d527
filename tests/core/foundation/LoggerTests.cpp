#include "LogCapture.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRemoteLogger.h>

#include <gtest/gtest.h>

#include <regex>
#include <thread>
#include <vector>

TEST(ConsoleLogger, OneLineCarriesTimeLevelFileLineFunctionAndTheFormattedMessage) {
    LogCapture logs;
    VLMSDKConsoleLogger::sharedLogger().logWithLevel(1, "/src/kit/Public/API/VLMSDKAPIManager+Reservation.cpp", 49,
                                                     "createReservationWithRequest", "Can't create reservation. %s",
                                                     "Required argument 'x' is missing.");
    const auto records = logs.consoleRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "Can't create reservation. Required argument 'x' is missing.");
    const std::string line = records[0].formatted();
    EXPECT_TRUE(std::regex_match(
        line, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z E VLMSDKAPIManager\+Reservation\.cpp:49 )"
                         R"(createReservationWithRequest: Can't create reservation\. Required argument 'x' is missing\.)")))
        << line;
}

TEST(ConsoleLogger, LinesAboveTheMaximumLevelAreDroppedAndLongMessagesKeptWhole) {
    LogCapture logs;
    auto& logger = VLMSDKConsoleLogger::sharedLogger();
    logger.setMaximumLevel(static_cast<int>(VLMSDKLogLevel::Warning));
    logger.logWithLevel(static_cast<int>(VLMSDKLogLevel::Debug), __FILE__, __LINE__, __func__, "dropped");
    const std::string longText(5000, 'x');
    logger.logWithLevel(static_cast<int>(VLMSDKLogLevel::Error), __FILE__, __LINE__, __func__, "%s!", longText.c_str());
    const auto records = logs.consoleRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, longText + "!");
}

TEST(RemoteLogger, KeepsABoundedQueueDroppingTheOldestAndCountingDrops) {
    LogCapture logs;
    auto& remote = VLMSDKRemoteLogger::sharedLogger();
    const auto capacity = remote.capacity();
    const auto droppedBefore = remote.droppedCount();
    remote.setCapacity(3);
    for (int i = 0; i < 5; ++i) remote.logWithLevel(1, __FILE__, __LINE__, __func__, "line %d", i);
    const auto records = remote.drain();
    remote.setCapacity(capacity);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].message, "line 2");
    EXPECT_EQ(records[2].message, "line 4");
    EXPECT_EQ(remote.droppedCount() - droppedBefore, 2u);
    EXPECT_TRUE(remote.drain().empty());
}

TEST(RemoteLogger, ManyThreadsLogWithoutLosingLinesBelowTheBound) {
    LogCapture logs;
    auto& remote = VLMSDKRemoteLogger::sharedLogger();
    constexpr int threads = 4, perThread = 100;
    std::vector<std::thread> loggers;
    for (int t = 0; t < threads; ++t) {
        loggers.emplace_back([&remote, t] {
            for (int i = 0; i < perThread; ++i) remote.logWithLevel(1, __FILE__, __LINE__, __func__, "%d/%d", t, i);
        });
    }
    for (auto& l : loggers) l.join();
    EXPECT_EQ(remote.drain().size(), static_cast<std::size_t>(threads * perThread));
}
