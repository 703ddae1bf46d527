#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <latch>
#include <limits>
#include <sstream>
#include <thread>

namespace {

using namespace std::chrono;

std::string address(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

}  // namespace

TEST(VLMSDKDescription, PrintsValuesTheWayRecordsDescribeThem) {
    const std::vector<std::pair<std::optional<double>, const char*>> numbers = {
        {12, "12"},   {-0.0, "-0"},   {0.1, "0.1"},  {1.0 / 3, "0.3333333333333333"}, {1e21, "1e+21"},
        {123456789012, "123456789012"}, {-std::numeric_limits<double>::quiet_NaN(), "nan"},
        {-std::numeric_limits<double>::infinity(), "-inf"}, {std::nullopt, "(null)"},
    };
    for (const auto& [number, expected] : numbers) {
        SCOPED_TRACE(expected);
        EXPECT_EQ(VLMSDKDescription::number(number), expected);
    }
    EXPECT_EQ(VLMSDKDescription::string(std::nullopt), "(null)");
    EXPECT_EQ(VLMSDKDescription::date(std::nullopt), "(null)");
    EXPECT_EQ(VLMSDKDescription::date(sys_days(2026y / November / 21)), "2026-11-21 00:00:00 +0000");
    EXPECT_EQ(VLMSDKDescription::time(sys_days(1969y / December / 31) + 1s), "1969-12-31 00:00:01 +0000");
    // Beyond the calendar's years there is no date to print, but still a text and no overflow.
    EXPECT_EQ(VLMSDKDescription::time(VLMSDKTime::max()), "9223372036854775807 s from 1970-01-01 00:00:00 +0000");
    EXPECT_EQ(VLMSDKDescription::date(VLMSDKDate::min()),
              std::to_string(VLMSDKDate::min().time_since_epoch().count()) + " days from 1970-01-01");
    EXPECT_EQ(VLMSDKDescription::date(sys_days(year::max() / December / 31)), "32767-12-31 00:00:00 +0000");
    int local = 0;
    EXPECT_EQ(VLMSDKDescription::pointer(&local), address(&local));
}

TEST(VLMSDKDeliverableCountableItem, DescribesItself) {
    VLMSDKDeliverableCountableItem item("room-service", 3);
    EXPECT_EQ(item.description(),
              "VLMSDKDeliverableCountableItem " + address(&item) + "; itemID room-service; count 3");
    VLMSDKDeliverableCountableItem empty;
    std::ostringstream streamed;
    streamed << empty;
    EXPECT_EQ(streamed.str(), "VLMSDKDeliverableCountableItem " + address(&empty) + "; itemID (null); count (null)");
}

TEST(VLMSDKPaymentTransaction, MapsAPaymentReply) {
    const auto json = VLMSDKJSON::parse(R"({
        "id": 88412, "amount": "120.50", "currency": " usd ", "status": "succeeded",
        "credit_card_id": "card_7", "created_at": "2026-11-21T10:04:05.250Z"
    })");
    const auto result = VLMSDKMapper::objectFromJSON(json, VLMSDKPaymentTransaction::objectMapping());
    const auto transaction = result->resultAs<VLMSDKPaymentTransaction>();
    ASSERT_NE(transaction, nullptr) << result->error()->developerMessage();
    EXPECT_EQ(transaction->description(),
              "VLMSDKPaymentTransaction " + address(transaction.get()) +
                  "; velmoraID 88412; amount 120.5; currencyCode USD; status succeeded; creditCardID card_7; "
                  "createdAt 2026-11-21 10:04:05 +0000");
}

// ctest runs each test in a process of its own, so these are the first calls in the process.
TEST(CoreRecords, ConcurrentFirstCallsShareOneMappingPerClass) {
    const auto mappings = [] {
        return std::vector<const void*>{
            VLMSDKDeliverableCountableItem::serializationMapping().get(),
            VLMSDKDeliverableCountableItem::classDescriptor().operations().serializationMapping().get(),
            VLMSDKPaymentTransaction::objectMapping().get(),
            VLMSDKPaymentTransaction::classDescriptor().operations().objectMapping().get()};
    };
    std::vector<std::vector<const void*>> seen(8);
    std::latch start(static_cast<std::ptrdiff_t>(seen.size()));
    {
        std::vector<std::jthread> threads;
        for (auto& slot : seen) {
            threads.emplace_back([&, &out = slot] {
                start.arrive_and_wait();
                out = mappings();
            });
        }
    }
    for (const auto& one : seen) EXPECT_EQ(one, seen.front());
    EXPECT_TRUE(seen.front()[0] && seen.front()[0] == seen.front()[1]);
    EXPECT_TRUE(seen.front()[2] && seen.front()[2] == seen.front()[3]);
}
