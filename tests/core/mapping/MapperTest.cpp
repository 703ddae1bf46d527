#include "MappingTestRecords.h"
#include "RecordingAssertionHandler.h"

#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace std::chrono;

std::shared_ptr<Ledger> mapLedger(const VLMSDKJSON& json, VLMErrorPtr* error = nullptr) {
    const auto result = VLMSDKMapper::objectFromJSON(json, Ledger::objectMapping());
    EXPECT_NE(result, nullptr);
    if (!result) return nullptr;
    if (error) *error = result->error();
    EXPECT_EQ(result->result() == nullptr, result->error() != nullptr) << "exactly one of result and error";
    return result->resultAs<Ledger>();
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(VLMSDKMapper, FillsEveryKindOfPropertyAndKeepsHasManyOrder) {
    const auto json = VLMSDKJSON::parse(R"({
        "id": 7001, "title": "Stay", "total": 99.5, "is_open": false,
        "day": "2026-11-21", "stamp": "2026-11-21T10:04:05Z",
        "lead": {"label": "first", "count": 1},
        "tallies": [{"label": "a", "count": 1}, {"label": "b", "count": "2.5"}, {"label": "c"}],
        "unmapped": "ignored"
    })");
    VLMErrorPtr error;
    const auto ledger = mapLedger(json, &error);
    ASSERT_NE(ledger, nullptr) << (error ? error->developerMessage() : "");
    EXPECT_EQ(ledger->velmoraID(), "7001");
    EXPECT_EQ(ledger->title(), "Stay");
    EXPECT_EQ(ledger->total(), 99.5);
    EXPECT_FALSE(ledger->isOpen());
    EXPECT_EQ(ledger->day(), sys_days(2026y / November / 21));
    EXPECT_EQ(ledger->stamp(), sys_days(2026y / November / 21) + 10h + 4min + 5s);
    ASSERT_NE(ledger->lead(), nullptr);
    EXPECT_EQ(ledger->lead()->label(), "first");
    ASSERT_EQ(ledger->tallies().size(), 3u);
    EXPECT_EQ(ledger->tallies()[0]->label(), "a");
    EXPECT_EQ(ledger->tallies()[1]->label(), "b");
    EXPECT_EQ(ledger->tallies()[1]->count(), 2.5);
    EXPECT_EQ(ledger->tallies()[2]->label(), "c");
    EXPECT_EQ(ledger->tallies()[2]->count(), std::nullopt);
}

TEST(VLMSDKMapper, MissingKeysAndNullsLeaveTheClassDefaults) {
    const std::vector<VLMSDKJSON> inputs = {
        VLMSDKJSON::object(),
        VLMSDKJSON::parse(R"({"id": null, "title": null, "total": null, "is_open": null, "day": null,
                              "stamp": null, "lead": null, "tallies": null})"),
    };
    for (const auto& json : inputs) {
        SCOPED_TRACE(json.dump());
        const auto ledger = mapLedger(json);
        ASSERT_NE(ledger, nullptr);
        EXPECT_EQ(ledger->velmoraID(), std::nullopt);
        EXPECT_EQ(ledger->title(), "untitled");
        EXPECT_EQ(ledger->total(), std::nullopt);
        EXPECT_TRUE(ledger->isOpen());
        EXPECT_EQ(ledger->day(), std::nullopt);
        EXPECT_EQ(ledger->lead(), nullptr);
        EXPECT_TRUE(ledger->tallies().empty());
    }
}

TEST(VLMSDKMapper, CallsNoTransformForNullAndKeepsTheDefaultWhenATransformGivesNull) {
    static std::atomic<int> calls{0};
    calls = 0;
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    mapping->mapJSONKey("title", "title", [](const VLMSDKJSON&) -> VLMSDKMappedValue {
        ++calls;
        return VLMSDKJSON();
    });
    std::shared_ptr<const VLMSDKObjectMapping> shared = mapping;

    auto result = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"title", nullptr}}, shared);
    ASSERT_NE(result->resultAs<Ledger>(), nullptr);
    EXPECT_EQ(calls, 0);

    result = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"title", "anything"}}, shared);
    ASSERT_NE(result->resultAs<Ledger>(), nullptr);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(result->resultAs<Ledger>()->title(), "untitled");
}

TEST(VLMSDKMapper, StoresNumericTextAsTheNumberItSpells) {
    struct Row {
        VLMSDKJSON input;
        double expected;
    };
    const std::vector<Row> rows = {
        {"9.90", 9.9}, {"-5", -5},      {"-5.00", -5}, {" 12 ", 12},        {"\t-0.25\n", -0.25}, {"+3", 3},
        {"1e3", 1000}, {"2.5E-1", 0.25}, {".5", 0.5},  {"0", 0},            {12, 12},             {-3.75, -3.75},
        {VLMSDKJSON(std::uint64_t{18446744073709551615u}), 18446744073709551615.0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input.dump());
        VLMErrorPtr error;
        const auto ledger = mapLedger(VLMSDKJSON{{"total", row.input}}, &error);
        ASSERT_NE(ledger, nullptr) << error->developerMessage();
        EXPECT_EQ(ledger->total(), row.expected);
    }
    const auto negativeZero = mapLedger(VLMSDKJSON{{"total", "-0"}});
    ASSERT_NE(negativeZero, nullptr);
    EXPECT_TRUE(std::signbit(*negativeZero->total()));
}

TEST(VLMSDKMapper, TakesBooleansAndNumbersForABoolean) {
    struct Row {
        VLMSDKJSON input;
        bool expected;
    };
    const std::vector<Row> rows = {{true, true}, {false, false}, {1, true},     {0, false},
                                   {-2, true},   {0.0, false},   {0.5, true},   {VLMSDKJSON(std::uint64_t{3}), true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input.dump());
        const auto ledger = mapLedger(VLMSDKJSON{{"is_open", row.input}, {"title", "t"}});
        ASSERT_NE(ledger, nullptr);
        EXPECT_EQ(ledger->isOpen(), row.expected);
    }
}

TEST(VLMSDKMapper, FailuresNameTheClassAndTheKeyAtFault) {
    struct Row {
        std::string name;
        VLMSDKJSON input;
        std::vector<std::string> mentions;  // each must appear in the developer message
        bool hasUnderlyingError;
    };
    const std::vector<Row> rows = {
        {"an array", VLMSDKJSON::array({1}), {"Ledger", "JSON object"}, false},
        {"text", "Ledger", {"Ledger", "JSON object"}, false},
        {"null", VLMSDKJSON(), {"Ledger", "JSON object"}, false},
        {"a number for text", {{"title", 5}}, {"Ledger", "\"title\"", "title"}, false},
        {"an object for text", {{"title", VLMSDKJSON::object()}}, {"Ledger", "\"title\""}, false},
        {"word for a number", {{"total", "abc"}}, {"Ledger", "\"total\"", "no number"}, false},
        {"empty text for a number", {{"total", ""}}, {"Ledger", "\"total\"", "no number"}, false},
        {"blank text for a number", {{"total", "  "}}, {"\"total\"", "no number"}, false},
        {"trailing junk", {{"total", "12abc"}}, {"\"total\"", "no number"}, false},
        {"two numbers", {{"total", "1 2"}}, {"\"total\"", "no number"}, false},
        {"infinity text", {{"total", "inf"}}, {"\"total\"", "no number"}, false},
        {"nan text", {{"total", "nan"}}, {"\"total\"", "no number"}, false},
        {"two signs", {{"total", "+-1"}}, {"\"total\"", "no number"}, false},
        {"hex text", {{"total", "0x10"}}, {"\"total\"", "no number"}, false},
        {"out of range", {{"total", "1e999"}}, {"\"total\"", "no number"}, false},
        {"a boolean for a number", {{"total", true}}, {"\"total\"", "number"}, false},
        {"an array for a number", {{"total", VLMSDKJSON::array({1})}}, {"\"total\""}, false},
        {"text for a boolean", {{"is_open", "yes"}}, {"Ledger", "\"is_open\"", "open"}, false},
        {"an impossible date", {{"day", "2026-02-30"}}, {"Ledger", "\"day\"", "transform"}, true},
        {"a number for a date", {{"day", 20261121}}, {"Ledger", "\"day\""}, true},
        {"a bad time", {{"stamp", "10:04"}}, {"Ledger", "\"stamp\""}, true},
        {"a float identifier", {{"id", 1.5}}, {"Ledger", "\"id\"", "velmoraID"}, true},
        {"text for a record", {{"lead", "first"}}, {"Ledger", "\"lead\""}, false},
        {"a bad nested record", {{"lead", {{"count", "many"}}}}, {"Ledger", "\"lead\"", "Tally", "\"count\""}, true},
        {"an object for has-many", {{"tallies", {{"label", "a"}}}}, {"Ledger", "\"tallies\"", "array"}, false},
        {"text for has-many", {{"tallies", "a,b"}}, {"Ledger", "\"tallies\""}, false},
        {"a non-object element",
         {{"tallies", VLMSDKJSON::array({{{"label", "a"}}, 3})}},
         {"Ledger", "\"tallies\"", "element 1"},
         false},
        {"a failing element",
         {{"tallies", VLMSDKJSON::array({{{"label", "a"}}, {{"label", "b"}}, {{"label", 5}}})}},
         {"Ledger", "\"tallies\"", "element 2", "Tally", "\"label\""},
         true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name + ": " + row.input.dump());
        VLMErrorPtr error;
        EXPECT_EQ(mapLedger(row.input, &error), nullptr);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->domain(), kVLMSDKMappingErrorDomain);
        EXPECT_EQ(error->code(), VLMErrorCode::Mapping);
        for (const auto& mention : row.mentions) {
            EXPECT_TRUE(contains(error->developerMessage(), mention))
                << "\"" << mention << "\" is not in: " << error->developerMessage();
        }
        EXPECT_EQ(error->underlyingError() != nullptr, row.hasUnderlyingError);
    }
}

TEST(VLMSDKMapper, AnElementClassWithoutAnObjectMappingFailsTheMapping) {
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    mapping->mapHasManyRelationshipOfClass(Orphan::classDescriptor(), "orphans", "orphans");
    ASSERT_EQ(mapping->entries().size(), 1u);

    const auto empty = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"title", "t"}}, mapping);
    EXPECT_NE(empty->result(), nullptr) << "no key: the element class is never needed";

    const auto result = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"orphans", VLMSDKJSON::array({VLMSDKJSON::object()})}},
                                                     mapping);
    EXPECT_EQ(result->result(), nullptr);
    ASSERT_NE(result->error(), nullptr);
    EXPECT_TRUE(contains(result->error()->developerMessage(), "Orphan"));
    EXPECT_TRUE(contains(result->error()->developerMessage(), "\"orphans\""));
}

TEST(VLMSDKMapper, TransformResultsMustFitTheProperty) {
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    // A date into a time property is its midnight; a date into text, or a time into a date, fails.
    mapping->mapJSONKey("when", "stamp", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
    mapping->mapJSONKey("day_as_title", "title", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
    mapping->mapJSONKey("time_as_day", "day", VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock());
    mapping->mapJSONKey("amount", "total", [](const VLMSDKJSON& value) -> VLMSDKMappedValue { return value; });
    std::shared_ptr<const VLMSDKObjectMapping> shared = mapping;

    auto result = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"when", "2026-11-21"}, {"amount", "12.50"}}, shared);
    ASSERT_NE(result->resultAs<Ledger>(), nullptr) << result->error()->developerMessage();
    EXPECT_EQ(result->resultAs<Ledger>()->stamp(), VLMSDKTime(sys_days(2026y / November / 21)));
    EXPECT_EQ(result->resultAs<Ledger>()->total(), 12.5) << "a transform's text goes through the number rules";

    for (const char* key : {"day_as_title", "time_as_day"}) {
        SCOPED_TRACE(key);
        const VLMSDKJSON input = {{key, std::string(key) == "time_as_day" ? "2026-11-21T10:04:05Z" : "2026-11-21"}};
        result = VLMSDKMapper::objectFromJSON(input, shared);
        EXPECT_EQ(result->result(), nullptr);
        ASSERT_NE(result->error(), nullptr);
        EXPECT_TRUE(contains(result->error()->developerMessage(), key));
    }

    result = VLMSDKMapper::objectFromJSON(VLMSDKJSON{{"amount", "twelve"}}, shared);
    EXPECT_EQ(result->result(), nullptr);
}

TEST(VLMSDKMapper, RefusesJSONNestedDeeperThanItsLimitWithoutExhaustingTheStack) {
    auto nested = [](int depth) {
        VLMSDKJSON json = VLMSDKJSON::object();
        for (int i = 0; i < depth; ++i) json = VLMSDKJSON{{"next", std::move(json)}};
        return json;
    };
    const auto shallow = VLMSDKMapper::objectFromJSON(nested(50), Link::objectMapping());
    ASSERT_NE(shallow->result(), nullptr);
    int length = 0;
    for (auto link = shallow->resultAs<Link>(); link; link = link->next()) ++length;
    EXPECT_EQ(length, 51);

    const auto deep = VLMSDKMapper::objectFromJSON(nested(5000), Link::objectMapping());
    EXPECT_EQ(deep->result(), nullptr);
    ASSERT_NE(deep->error(), nullptr);
    EXPECT_TRUE(contains(deep->error()->developerMessage(), "deep"));
}

TEST(VLMSDKMapper, ANullMappingIsAnErrorNotACrash) {
    const auto result = VLMSDKMapper::objectFromJSON(VLMSDKJSON::object(), nullptr);
    EXPECT_EQ(result->result(), nullptr);
    ASSERT_NE(result->error(), nullptr);
    EXPECT_EQ(result->error()->code(), VLMErrorCode::Mapping);
}

TEST(VLMSDKObjectMapping, EntriesForMissingPropertiesAreReportedAndSkipped) {
    const auto handler = RecordingAssertionHandler::install();
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    mapping->mapJSONKeysToThePropertyKeys({{"title", "title"}, {"nope", "noSuchProperty"}});
    mapping->mapJSONKey("x", "alsoMissing", VLMSDKCurrencyMapping::currencyAttributeMappingBlock());
    mapping->mapJSONKey("t", "title", nullptr);
    mapping->mapHasManyRelationshipOfClass(Tally::classDescriptor(), "t", "title");   // not an array property
    mapping->mapHasManyRelationshipOfClass(Orphan::classDescriptor(), "t", "tallies");  // wrong element class
    mapping->mapHasManyRelationshipOfClass(Tally::classDescriptor(), "tallies", "tallies");
    VLMSDKObject::addVelmoraIDMapping(*VLMSDKObjectMapping::mappingForClass(Tally::classDescriptor()));
    const auto calls = handler->calls();
    RecordingAssertionHandler::uninstall();

    ASSERT_EQ(mapping->entries().size(), 2u);
    EXPECT_EQ(mapping->entries()[0].jsonKey, "title");
    EXPECT_EQ(mapping->entries()[0].property, Ledger::classDescriptor().propertyNamed("title"));
    EXPECT_EQ(mapping->entries()[1].kind, VLMSDKObjectMapping::EntryKind::HasMany);
    EXPECT_EQ(mapping->entries()[1].elementClass, &Tally::classDescriptor());

    ASSERT_EQ(calls.size(), 6u);
    const std::vector<std::vector<std::string>> mentions = {
        {"Ledger", "noSuchProperty"}, {"Ledger", "alsoMissing"}, {"title"}, {"title", "Tally"}, {"tallies", "Orphan"},
        {"Tally", "VLMSDKObject"}};
    for (std::size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(calls[i].text);
        EXPECT_FALSE(calls[i].isParameterAssert);
        for (const auto& mention : mentions[i]) EXPECT_TRUE(contains(calls[i].text, mention)) << mention;
    }
}
