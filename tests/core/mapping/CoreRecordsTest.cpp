#include "MappingTestRecords.h"

#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <cmath>
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

// Calls `get` from several threads released at once and checks they all saw the same object.
template <class Get>
void expectOneObjectAcrossThreads(Get get) {
    constexpr int kThreads = 8;
    std::latch start(kThreads);
    std::vector<const void*> seen(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            seen[i] = get().get();
        });
    }
    for (auto& thread : threads) thread.join();
    for (const void* object : seen) {
        EXPECT_NE(object, nullptr);
        EXPECT_EQ(object, seen.front());
    }
    EXPECT_EQ(get().get(), seen.front());
}

}  // namespace

TEST(VLMSDKDescription, PrintsValuesTheWayRecordsDescribeThem) {
    struct Row {
        std::optional<double> number;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {12, "12"},       {12.5, "12.5"},   {-0.0, "-0"},     {0, "0"},
        {0.1, "0.1"},     {-3.25, "-3.25"}, {1e21, "1e+21"},  {123456789012, "123456789012"},
        {1.0 / 3, "0.3333333333333333"},    {std::numeric_limits<double>::quiet_NaN(), "nan"},
        {-std::numeric_limits<double>::quiet_NaN(), "nan"}, {std::numeric_limits<double>::infinity(), "inf"},
        {-std::numeric_limits<double>::infinity(), "-inf"}, {std::nullopt, "(null)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expected);
        EXPECT_EQ(VLMSDKDescription::number(row.number), row.expected);
    }
    EXPECT_EQ(VLMSDKDescription::string(std::nullopt), "(null)");
    EXPECT_EQ(VLMSDKDescription::string(std::string()), "");
    EXPECT_EQ(VLMSDKDescription::date(sys_days(2026y / November / 21)), "2026-11-21 00:00:00 +0000");
    EXPECT_EQ(VLMSDKDescription::date(std::nullopt), "(null)");
    EXPECT_EQ(VLMSDKDescription::time(sys_days(1999y / December / 31) + 23h + 59min + 58s),
              "1999-12-31 23:59:58 +0000");
    EXPECT_EQ(VLMSDKDescription::time(sys_days(1969y / December / 31) + 1s), "1969-12-31 00:00:01 +0000");
    // Beyond the calendar's years there is no date to print, but still a text and no overflow.
    EXPECT_EQ(VLMSDKDescription::time(VLMSDKTime::max()), "9223372036854775807 s from 1970-01-01 00:00:00 +0000");
    EXPECT_EQ(VLMSDKDescription::date(VLMSDKDate::min()),
              std::to_string(VLMSDKDate::min().time_since_epoch().count()) + " days from 1970-01-01");
    EXPECT_EQ(VLMSDKDescription::date(sys_days(year::max() / December / 31)), "32767-12-31 00:00:00 +0000");
    int local = 0;
    EXPECT_EQ(VLMSDKDescription::pointer(&local), address(&local));
}

TEST(VLMSDKObject, DescribesItsIdentifierAndAddsTheIdentifierEntry) {
    const VLMSDKClass& base = VLMSDKObject::classDescriptor();
    EXPECT_EQ(base.name(), "VLMSDKObject");
    EXPECT_EQ(base.makeInstance(), nullptr);
    ASSERT_EQ(base.properties().size(), 1u);
    EXPECT_EQ(base.properties()[0].name(), "velmoraID");
    EXPECT_EQ(base.properties()[0].kind(), VLMSDKPropertyKind::String);

    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    VLMSDKObject::addVelmoraIDMapping(*mapping);
    ASSERT_EQ(mapping->entries().size(), 1u);
    EXPECT_EQ(mapping->entries()[0].kind, VLMSDKObjectMapping::EntryKind::Transformed);
    EXPECT_EQ(mapping->entries()[0].jsonKey, "id");
    EXPECT_EQ(mapping->entries()[0].property->name(), "velmoraID");
    const auto mapped = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"id", 12}}, mapping);
    ASSERT_NE(mapped->resultAs<Ledger>(), nullptr);
    EXPECT_EQ(mapped->resultAs<Ledger>()->velmoraID(), "12");
}

TEST(VLMSDKDeliverableCountableItem, DescribesItselfAndSharesOneSerializationMapping) {
    VLMSDKDeliverableCountableItem item("room-service", 3);
    EXPECT_EQ(item.description(),
              "VLMSDKDeliverableCountableItem " + address(&item) + "; itemID room-service; count 3");
    VLMSDKDeliverableCountableItem empty;
    EXPECT_EQ(empty.description(),
              "VLMSDKDeliverableCountableItem " + address(&empty) + "; itemID (null); count (null)");
    empty.setCount(0.25);
    std::ostringstream streamed;
    streamed << empty;
    EXPECT_EQ(streamed.str(), "VLMSDKDeliverableCountableItem " + address(&empty) + "; itemID (null); count 0.25");

    EXPECT_EQ(&item.objectClass(), &VLMSDKDeliverableCountableItem::classDescriptor());
    EXPECT_EQ(VLMSDKDeliverableCountableItem::classDescriptor().operations().serializationMapping().get(),
              VLMSDKDeliverableCountableItem::serializationMapping().get());
    expectOneObjectAcrossThreads([] { return VLMSDKDeliverableCountableItem::serializationMapping(); });
}

TEST(VLMSDKPaymentTransaction, MapsAPaymentReply) {
    const auto json = VLMSDKJSON::parse(R"({
        "id": 88412, "amount": "120.50", "currency": " usd ", "status": "succeeded",
        "credit_card_id": "card_7", "created_at": "2026-11-21T10:04:05.250Z"
    })");
    const auto result = VLMSDKMapper::objectFromJSON(json, VLMSDKPaymentTransaction::objectMapping());
    const auto transaction = result->resultAs<VLMSDKPaymentTransaction>();
    ASSERT_NE(transaction, nullptr) << result->error()->developerMessage();
    EXPECT_EQ(transaction->velmoraID(), "88412");
    EXPECT_EQ(transaction->amount(), 120.5);
    EXPECT_EQ(transaction->currencyCode(), "USD");
    EXPECT_EQ(transaction->status(), "succeeded");
    EXPECT_EQ(transaction->creditCardID(), "card_7");
    EXPECT_EQ(transaction->createdAt(), sys_days(2026y / November / 21) + 10h + 4min + 5s);
    EXPECT_EQ(transaction->description(),
              "VLMSDKPaymentTransaction " + address(transaction.get()) +
                  "; velmoraID 88412; amount 120.5; currencyCode USD; status succeeded; creditCardID card_7; "
                  "createdAt 2026-11-21 10:04:05 +0000");

    const auto failed =
        VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"currency", 840}}, VLMSDKPaymentTransaction::objectMapping());
    EXPECT_EQ(failed->result(), nullptr);
    ASSERT_NE(failed->error(), nullptr);
    EXPECT_NE(failed->error()->developerMessage().find("\"currency\""), std::string::npos);
}

TEST(VLMSDKPaymentTransaction, IsAnIdentifiedRecordWithOneSharedMapping) {
    const VLMSDKClass& descriptor = VLMSDKPaymentTransaction::classDescriptor();
    EXPECT_EQ(descriptor.superclass(), &VLMSDKObject::classDescriptor());
    EXPECT_TRUE(descriptor.isSubclassOfClass(VLMSDKObject::classDescriptor()));
    ASSERT_FALSE(descriptor.properties().empty());
    EXPECT_EQ(descriptor.properties()[0].name(), "velmoraID");
    EXPECT_NE(std::dynamic_pointer_cast<VLMSDKPaymentTransaction>(descriptor.makeInstance()), nullptr);
    EXPECT_EQ(descriptor.operations().objectMapping().get(), VLMSDKPaymentTransaction::objectMapping().get());
    expectOneObjectAcrossThreads([] { return VLMSDKPaymentTransaction::objectMapping(); });
}
