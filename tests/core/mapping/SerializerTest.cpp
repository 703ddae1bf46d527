#include "../support/CoreTestRecords.h"

#include <VLMSDKCoreKit/Mapping/VLMSDKSerializer.h>
#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace std::chrono;

std::shared_ptr<VLMSDKDeliverableCountableItem> item(std::optional<std::string> itemID, std::optional<double> count) {
    auto made = std::make_shared<VLMSDKDeliverableCountableItem>();
    made->setItemID(std::move(itemID));
    made->setCount(count);
    return made;
}

VLMSDKJSON serialize(const std::vector<std::shared_ptr<VLMSDKRootObject>>& records) {
    return VLMSDKSerializer::serializeCollection(records, VLMSDKDeliverableCountableItem::serializationMapping());
}

}  // namespace

TEST(VLMSDKSerializer, WritesOneObjectPerRecordOfTheClassInOrderWithNumbersAsJSONCanHoldThem) {
    const std::vector<std::shared_ptr<VLMSDKRootObject>> records = {
        item("towel", 2),  nullptr, std::make_shared<Leaf>(), item(std::nullopt, 0.1), item("", -0.0),
        item("huge", 1e300), item("nan", std::numeric_limits<double>::quiet_NaN()),
        item("late-checkout", std::nullopt), item("inf", -std::numeric_limits<double>::infinity())};
    VLMSDKJSON json = serialize(records);
    // NaN and infinity are kept as they are (the request builder refuses to send them).
    ASSERT_EQ(json.size(), 7u);
    EXPECT_TRUE(std::isnan(json[4]["quantity"].get<double>()));
    EXPECT_TRUE(std::isinf(json[6]["quantity"].get<double>()));
    json[4].erase("quantity");
    json[6].erase("quantity");
    EXPECT_EQ(json, VLMSDKJSON::parse(R"([{"item_id": "towel", "quantity": 2}, {"quantity": 0.1},
        {"item_id": "", "quantity": 0}, {"item_id": "huge", "quantity": 1e300}, {"item_id": "nan"},
        {"item_id": "late-checkout"}, {"item_id": "inf"}])")) << json.dump();
    // Integral values are integers, unless no integer holds them.
    EXPECT_TRUE(json[0]["quantity"].is_number_integer() && json[2]["quantity"].is_number_integer());
    EXPECT_TRUE(json[1]["quantity"].is_number_float() && json[3]["quantity"].is_number_float());
    EXPECT_EQ(VLMSDKSerializer::serializeCollection(records, nullptr), VLMSDKJSON::array());
    EXPECT_EQ(serialize({}), VLMSDKJSON::array());
}

TEST(VLMSDKSerializer, WritesNestedRecordsDatesAndBooleans) {
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    mapping->mapJSONKeysToThePropertyKeys(
        {{"title", "title"}, {"is_open", "open"}, {"day", "day"}, {"stamp", "stamp"}, {"lead", "lead"}});
    mapping->mapHasManyRelationshipOfClass(Leaf::classDescriptor(), "leaves", "leaves");
    mapping->mapJSONKey("total", "total", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());  // not written

    auto ledger = std::make_shared<Ledger>();
    ledger->title = std::nullopt;
    ledger->open = false;
    ledger->total = 5;
    ledger->day = sys_days(2026y / November / 21);
    ledger->stamp = sys_days(2026y / November / 21) + 10h + 4min + 5s;
    auto first = std::make_shared<Leaf>();
    first->label = "a";
    auto second = std::make_shared<Leaf>();
    second->count = 2;
    ledger->lead = first;
    ledger->leaves = {first, second};

    auto farOff = std::make_shared<Ledger>();  // beyond the calendar's years: no text, left out
    farOff->day = VLMSDKDate::max();
    farOff->stamp = VLMSDKTime::min();

    const VLMSDKJSON json = VLMSDKSerializer::serializeCollection(std::vector{ledger, farOff}, mapping);
    EXPECT_EQ(json, VLMSDKJSON::parse(R"([{
        "is_open": false, "day": "2026-11-21", "stamp": "2026-11-21T10:04:05Z",
        "lead": {"label": "a"}, "leaves": [{"label": "a"}, {"count": 2}]
    }, {
        "title": "untitled", "is_open": true
    }])")) << json.dump();
}
