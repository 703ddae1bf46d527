#include "MappingTestRecords.h"

#include <VLMSDKCoreKit/Mapping/VLMSDKSerializer.h>
#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace std::chrono;

std::shared_ptr<VLMSDKDeliverableCountableItem> item(std::optional<std::string> itemID, std::optional<double> count) {
    auto made = std::make_shared<VLMSDKDeliverableCountableItem>();
    made->setItemID(std::move(itemID));
    made->setCount(count);
    return made;
}

}  // namespace

TEST(VLMSDKSerializer, WritesOneObjectPerItemInOrderLeavingAbsentValuesOut) {
    const std::vector<std::shared_ptr<VLMSDKDeliverableCountableItem>> items = {
        item("towel", 2), item("minibar-water", 2.5), item("late-checkout", std::nullopt), nullptr,
        item(std::nullopt, 1), item("", 0)};
    const VLMSDKJSON json =
        VLMSDKSerializer::serializeCollection(items, VLMSDKDeliverableCountableItem::serializationMapping());

    const VLMSDKJSON expected = VLMSDKJSON::parse(R"([
        {"item_id": "towel", "quantity": 2},
        {"item_id": "minibar-water", "quantity": 2.5},
        {"item_id": "late-checkout"},
        {"quantity": 1},
        {"item_id": "", "quantity": 0}
    ])");
    EXPECT_EQ(json, expected) << json.dump();
    EXPECT_TRUE(json[0]["quantity"].is_number_integer()) << "an integral count is written as an integer";
    EXPECT_TRUE(json[1]["quantity"].is_number_float());
}

TEST(VLMSDKSerializer, WritesNumbersAsJSONCanHoldThem) {
    struct Row {
        double count;
        VLMSDKJSON expected;  // null: left out
    };
    const std::vector<Row> rows = {
        {12, 12},
        {-3, -3},
        {-0.0, 0},
        {0.1, 0.1},
        {1e15, 1000000000000000},
        {1e300, 1e300},
        {std::numeric_limits<double>::quiet_NaN(), nullptr},
        {std::numeric_limits<double>::infinity(), nullptr},
        {-std::numeric_limits<double>::infinity(), nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.count);
        const VLMSDKJSON json = VLMSDKSerializer::serializeCollection(
            std::vector{item("x", row.count)}, VLMSDKDeliverableCountableItem::serializationMapping());
        ASSERT_EQ(json.size(), 1u);
        if (row.expected.is_null()) {
            EXPECT_FALSE(json[0].contains("quantity")) << json.dump();
        } else {
            EXPECT_EQ(json[0]["quantity"], row.expected) << json.dump();
            EXPECT_EQ(json[0]["quantity"].is_number_integer(), row.expected.is_number_integer()) << json.dump();
        }
    }
}

TEST(VLMSDKSerializer, SkipsRecordsOfOtherClassesAndAnswersAnEmptyArrayWithoutAMapping) {
    const std::vector<std::shared_ptr<VLMSDKRootObject>> mixed = {std::make_shared<Tally>(), item("a", 1)};
    EXPECT_EQ(VLMSDKSerializer::serializeCollection(mixed, VLMSDKDeliverableCountableItem::serializationMapping()),
              VLMSDKJSON::parse(R"([{"item_id": "a", "quantity": 1}])"));
    EXPECT_EQ(VLMSDKSerializer::serializeCollection(mixed, nullptr), VLMSDKJSON::array());
    EXPECT_EQ(VLMSDKSerializer::serializeCollection(std::vector<std::shared_ptr<VLMSDKRootObject>>(),
                                                    VLMSDKDeliverableCountableItem::serializationMapping()),
              VLMSDKJSON::array());
}

TEST(VLMSDKSerializer, WritesNestedRecordsDatesAndBooleans) {
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    mapping->mapJSONKeysToThePropertyKeys(
        {{"title", "title"}, {"is_open", "open"}, {"day", "day"}, {"stamp", "stamp"}, {"lead", "lead"}});
    mapping->mapHasManyRelationshipOfClass(Tally::classDescriptor(), "tallies", "tallies");
    mapping->mapJSONKey("total", "total", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());  // not written

    auto ledger = std::make_shared<Ledger>();
    ledger->setTitle(std::nullopt);
    ledger->setOpen(false);
    ledger->setTotal(5);
    ledger->setDay(sys_days(2026y / November / 21));
    ledger->setStamp(sys_days(2026y / November / 21) + 10h + 4min + 5s);
    auto first = std::make_shared<Tally>();
    first->setLabel("a");
    auto second = std::make_shared<Tally>();
    second->setCount(2);
    ledger->setLead(first);
    ledger->setTallies({first, second});

    auto farOff = std::make_shared<Ledger>();
    farOff->setDay(VLMSDKDate::max());
    farOff->setStamp(VLMSDKTime::min());

    const VLMSDKJSON json = VLMSDKSerializer::serializeCollection(std::vector{ledger, farOff}, mapping);
    EXPECT_EQ(json, VLMSDKJSON::parse(R"([{
        "is_open": false, "day": "2026-11-21", "stamp": "2026-11-21T10:04:05Z",
        "lead": {"label": "a"}, "tallies": [{"label": "a"}, {"count": 2}]
    }, {
        "title": "untitled", "is_open": true
    }])")) << json.dump();
}
