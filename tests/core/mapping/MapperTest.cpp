#include "../support/CoreTestRecords.h"
#include "RecordingAssertionHandler.h"

#include <JSON/VLMSDKJSONReader.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKKeyedArchiver.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace std::chrono;

// The outcome as text: the record's archive, or the error's message; equal outcomes give equal text.
std::string outcomeOf(const VLMSDKMappingResult& result) {
    if (!result.result()) return "error: " + result.error()->developerMessage();
    VLMSDKKeyedArchiver archiver;
    const auto bytes = archiver.archiveRootObject(*result.result());
    return std::string(bytes.begin(), bytes.end());
}

// The reply as the transport reads it from `text`.
std::shared_ptr<const VLMSDKJSONReply> readReply(std::string text) {
    vlmsdk::detail::VLMSDKJSONReader reader;
    return reader.read(text).reply;
}

// Maps `json` as a value and as the transport reads its text: both ways must give the same outcome.
std::shared_ptr<const VLMSDKMappingResult> mapBothForms(const VLMSDKJSON& json,
                                                        const std::shared_ptr<const VLMSDKObjectMapping>& mapping) {
    const auto fromValue = VLMSDKMapper::objectFromJSON(json, mapping);
    EXPECT_EQ(fromValue->result() == nullptr, fromValue->error() != nullptr) << "exactly one of result and error";
    const auto reply = readReply(json.dump());
    EXPECT_NE(reply, nullptr);
    if (reply) {
        EXPECT_EQ(outcomeOf(*VLMSDKMapper::objectFromReply(*reply, mapping)), outcomeOf(*fromValue));
    }
    return fromValue;
}

std::shared_ptr<Ledger> mapLedger(const VLMSDKJSON& json, VLMErrorPtr* error = nullptr) {
    const auto result = mapBothForms(json, Ledger::objectMapping());
    if (error) *error = result->error();
    return result->resultAs<Ledger>();
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(VLMSDKMapper, FillsEveryKindOfPropertyAndKeepsHasManyOrder) {
    const auto json = VLMSDKJSON::parse(R"({
        "id": 7001, "title": "Stay", "total": 99.5, "is_open": false,
        "day": "2026-11-21", "stamp": "2026-11-21T10:04:05Z", "lead": {"label": "first", "count": 1},
        "leaves": [{"label": "a"}, {"label": "b", "count": "2.5"}, {"label": "c"}], "unmapped": "ignored"
    })");
    VLMErrorPtr error;
    const auto ledger = mapLedger(json, &error);
    ASSERT_NE(ledger, nullptr) << error->developerMessage();
    EXPECT_EQ(ledger->velmoraID(), "7001");
    EXPECT_EQ(ledger->title, "Stay");
    EXPECT_EQ(ledger->total, 99.5);
    EXPECT_FALSE(ledger->open);
    EXPECT_EQ(ledger->day, sys_days(2026y / November / 21));
    EXPECT_EQ(ledger->stamp, sys_days(2026y / November / 21) + 10h + 4min + 5s);
    ASSERT_NE(ledger->lead, nullptr);
    EXPECT_EQ(ledger->lead->label, "first");
    ASSERT_EQ(ledger->leaves.size(), 3u);
    EXPECT_EQ(ledger->leaves[0]->label, "a");
    EXPECT_EQ(ledger->leaves[1]->label, "b");
    EXPECT_EQ(ledger->leaves[1]->count, 2.5);
    EXPECT_EQ(ledger->leaves[2]->label, "c");
}

TEST(VLMSDKMapper, MissingKeysAndNullsLeaveTheClassDefaults) {
    for (const auto& json : {VLMSDKJSON::object(), VLMSDKJSON::parse(R"({"id": null, "title": null, "total": null,
             "is_open": null, "day": null, "stamp": null, "lead": null, "leaves": null})")}) {
        SCOPED_TRACE(json.dump());
        const auto ledger = mapLedger(json);
        ASSERT_NE(ledger, nullptr);
        EXPECT_EQ(ledger->velmoraID(), std::nullopt);
        EXPECT_EQ(ledger->title, "untitled");
        EXPECT_EQ(ledger->total, std::nullopt);
        EXPECT_TRUE(ledger->open);
        EXPECT_EQ(ledger->day, std::nullopt);
        EXPECT_EQ(ledger->lead, nullptr);
        EXPECT_TRUE(ledger->leaves.empty());
    }
}

TEST(VLMSDKMapper, ReadsNumbersFromWhollyNumericTextAndBooleansFromNumbers) {
    const std::vector<std::pair<VLMSDKJSON, std::optional<double>>> numbers = {
        {"9.90", 9.9}, {"\t-0.25\n", -0.25}, {"+3", 3},  {"1e3", 1000}, {".5", 0.5}, {"-0", -0.0}, {12, 12},
        {"  ", std::nullopt}, {"inf", std::nullopt}, {"12abc", std::nullopt}, {"1e999", std::nullopt},
    };
    for (const auto& [input, expected] : numbers) {
        SCOPED_TRACE(input.dump());
        VLMErrorPtr error;
        const auto ledger = mapLedger(VLMSDKJSON{{"total", input}}, &error);
        if (!expected) {
            ASSERT_NE(error, nullptr);
            EXPECT_TRUE(contains(error->developerMessage(), "\"total\"")) << error->developerMessage();
            continue;
        }
        ASSERT_NE(ledger, nullptr) << error->developerMessage();
        EXPECT_EQ(ledger->total, expected);
        EXPECT_EQ(std::signbit(*ledger->total), std::signbit(*expected));
    }
    const std::vector<std::pair<VLMSDKJSON, bool>> booleans = {{false, false}, {0, false}, {0.5, true}};
    for (const auto& [input, expected] : booleans) {
        SCOPED_TRACE(input.dump());
        const auto ledger = mapLedger(VLMSDKJSON{{"is_open", input}});
        ASSERT_NE(ledger, nullptr);
        EXPECT_EQ(ledger->open, expected);
    }
}

TEST(VLMSDKMapper, FailuresNameTheClassAndTheKeyAtFault) {
    struct Row {
        std::string name;
        VLMSDKJSON input;
        std::vector<std::string> mentions;  // besides "Ledger", each must appear in the developer message
        bool hasUnderlyingError;
    };
    const std::vector<Row> rows = {
        {"not an object", VLMSDKJSON::array({1}), {"JSON object"}, false},
        {"a number for text", {{"title", 5}}, {"\"title\""}, false},
        {"a boolean for a number", {{"total", true}}, {"\"total\"", "number"}, false},
        {"text for a boolean", {{"is_open", "yes"}}, {"\"is_open\"", "open"}, false},
        {"a failing transform", {{"day", "2026-02-30"}}, {"\"day\"", "transform"}, true},
        {"text for a record", {{"lead", "first"}}, {"\"lead\""}, false},
        {"a bad nested record", {{"lead", {{"count", "many"}}}}, {"\"lead\"", "Leaf", "\"count\""}, true},
        {"an object for has-many", {{"leaves", {{"label", "a"}}}}, {"\"leaves\"", "array"}, false},
        {"a non-object element", {{"leaves", VLMSDKJSON::array({{{"label", "a"}}, 3})}}, {"element 1"}, false},
        {"a failing element",
         {{"leaves", VLMSDKJSON::array({{{"label", "a"}}, {{"label", "b"}}, {{"label", 5}}})}},
         {"\"leaves\"", "element 2", "Leaf", "\"label\""},
         true},
        {"an element class without a mapping", {{"bares", VLMSDKJSON::array({VLMSDKJSON::object()})}},
         {"\"bares\"", "Bare"}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name + ": " + row.input.dump());
        VLMErrorPtr error;
        EXPECT_EQ(mapLedger(row.input, &error), nullptr);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->domain(), kVLMSDKMappingErrorDomain);
        EXPECT_EQ(error->code(), VLMErrorCode::Mapping);
        EXPECT_TRUE(contains(error->developerMessage(), "Ledger")) << error->developerMessage();
        for (const auto& mention : row.mentions) {
            EXPECT_TRUE(contains(error->developerMessage(), mention)) << mention << " / " << error->developerMessage();
        }
        EXPECT_EQ(error->underlyingError() != nullptr, row.hasUnderlyingError);
    }
    const auto withoutMapping = VLMSDKMapper::objectFromJSON(VLMSDKJSON::object(), nullptr);
    EXPECT_EQ(withoutMapping->result(), nullptr);
    ASSERT_NE(withoutMapping->error(), nullptr);
    EXPECT_EQ(withoutMapping->error()->code(), VLMErrorCode::Mapping);
}

TEST(VLMSDKMapper, TransformResultsMustFitTheProperty) {
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    // A date into a time property is its midnight; a date into text, or a time into a date, fails.
    mapping->mapJSONKey("when", "stamp", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
    mapping->mapJSONKey("day_as_title", "title", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
    mapping->mapJSONKey("time_as_day", "day", VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock());
    mapping->mapJSONKey("amount", "total", [](const VLMSDKJSON& value) -> VLMSDKMappedValue { return value; });
    mapping->mapJSONKey("nothing", "title", [](const VLMSDKJSON&) -> VLMSDKMappedValue { return VLMSDKJSON(); });
    std::shared_ptr<const VLMSDKObjectMapping> shared = mapping;

    auto result = mapBothForms(VLMSDKJSON{{"when", "2026-11-21"}, {"amount", "12.50"}, {"nothing", 1}}, shared);
    const auto ledger = result->resultAs<Ledger>();
    ASSERT_NE(ledger, nullptr) << result->error()->developerMessage();
    EXPECT_EQ(ledger->stamp, VLMSDKTime(sys_days(2026y / November / 21)));
    EXPECT_EQ(ledger->total, 12.5) << "a transform's text goes through the number rules";
    EXPECT_EQ(ledger->title, "untitled") << "a transform's null leaves the default";

    const std::vector<std::pair<const char*, const char*>> failing = {
        {"day_as_title", "2026-11-21"}, {"time_as_day", "2026-11-21T10:04:05Z"}, {"amount", "twelve"}};
    for (const auto& [key, value] : failing) {
        SCOPED_TRACE(key);
        result = mapBothForms(VLMSDKJSON{{key, value}}, shared);
        EXPECT_EQ(result->result(), nullptr);
        ASSERT_NE(result->error(), nullptr);
        EXPECT_TRUE(contains(result->error()->developerMessage(), key));
    }
}

// What a JSON value cannot show: repeated keys, and the reply's member picked without building it.
TEST(VLMSDKMapper, TheTransportsFormMapsAsTheValueOfTheSameTextDoes) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> rows = {
        {R"({"title":"a","title":"b"})", "b"},
        {R"({"title":"a","title":null})", "untitled"},
        {R"({"title":null,"title":"a"})", "a"},
        {R"({"title":5,"title":"a"})", "a"},
        {R"({"title":"a","title":5})", std::nullopt},  // fails: the last value counts
        {R"({"leaves":[{"label":"x","label":"y"}],"title":"\u00e9\n"})", "\u00e9\n"},
        {R"({"id":123456789012345678901234567890,"title":"wide"})", std::nullopt},  // an id must be an integer
        {R"({"id":18446744073709551615,"total":-9223372036854775808,"is_open":0})", "untitled"},
    };
    for (const auto& [text, title] : rows) {
        SCOPED_TRACE(text);
        const auto reply = readReply(text);
        ASSERT_NE(reply, nullptr);
        const auto fromText = VLMSDKMapper::objectFromReply(*reply, Ledger::objectMapping());
        const auto fromValue = VLMSDKMapper::objectFromJSON(VLMSDKJSON::parse(text), Ledger::objectMapping());
        EXPECT_EQ(outcomeOf(*fromText), outcomeOf(*fromValue));
        const auto ledger = fromText->resultAs<Ledger>();
        EXPECT_EQ(ledger != nullptr, title.has_value()) << outcomeOf(*fromText);
        if (ledger) {
            EXPECT_EQ(ledger->title, title);
        }
    }

    // A named member is mapped alone; a missing one, or a reply that is no object, maps as null.
    const std::vector<std::pair<std::string, std::string>> members = {
        {R"({"lead":{"label":"one"},"lead":{"label":"two"}})", "two"},
        {R"({"other":{}})", "error: Leaf: expected a JSON object, got null"},
        {R"([{"label":"one"}])", "error: Leaf: expected a JSON object, got null"},
    };
    for (const auto& [text, expected] : members) {
        SCOPED_TRACE(text);
        for (const auto& reply : {readReply(text), std::make_shared<const VLMSDKJSONReply>(VLMSDKJSON::parse(text))}) {
            const auto result = VLMSDKMapper::objectFromReply(*reply, Leaf::objectMapping(), "lead");
            const auto leaf = result->resultAs<Leaf>();
            EXPECT_EQ(leaf ? *leaf->label : outcomeOf(*result), expected);
        }
    }
}

TEST(VLMSDKMapper, RefusesJSONNestedDeeperThanItsLimitWithoutExhaustingTheStack) {
    auto nested = [](int depth) {
        VLMSDKJSON json = VLMSDKJSON::object();
        for (int i = 0; i < depth; ++i) json = VLMSDKJSON{{"next", std::move(json)}};
        return json;
    };
    const auto shallow = VLMSDKMapper::objectFromJSON(nested(50), Leaf::objectMapping());
    int length = 0;
    for (auto leaf = shallow->resultAs<Leaf>(); leaf; leaf = leaf->next) ++length;
    EXPECT_EQ(length, 51);

    const auto deep = VLMSDKMapper::objectFromJSON(nested(5000), Leaf::objectMapping());
    EXPECT_EQ(deep->result(), nullptr);
    ASSERT_NE(deep->error(), nullptr);
    EXPECT_TRUE(contains(deep->error()->developerMessage(), "deep"));
}

TEST(VLMSDKObjectMapping, EntriesForMissingPropertiesAreReportedAndSkipped) {
    const auto handler = RecordingAssertionHandler::install();
    auto mapping = VLMSDKObjectMapping::mappingForClass(Ledger::classDescriptor());
    mapping->mapJSONKeysToThePropertyKeys({{"title", "title"}, {"nope", "noSuchProperty"}});
    mapping->mapJSONKey("x", "alsoMissing", VLMSDKCurrencyMapping::currencyAttributeMappingBlock());
    mapping->mapJSONKey("t", "title", nullptr);
    mapping->mapHasManyRelationshipOfClass(Leaf::classDescriptor(), "t", "title");  // not an array property
    mapping->mapHasManyRelationshipOfClass(Bare::classDescriptor(), "t", "leaves");  // wrong element class
    mapping->mapHasManyRelationshipOfClass(Leaf::classDescriptor(), "leaves", "leaves");
    VLMSDKObject::addVelmoraIDMapping(*VLMSDKObjectMapping::mappingForClass(Leaf::classDescriptor()));
    const auto calls = handler->calls();
    RecordingAssertionHandler::uninstall();

    ASSERT_EQ(mapping->entries().size(), 2u) << "only the two sound entries";
    EXPECT_EQ(mapping->entries()[1].elementClass, &Leaf::classDescriptor());

    const std::vector<std::vector<std::string>> mentions = {{"Ledger", "noSuchProperty"}, {"Ledger", "alsoMissing"},
                                                            {"title"}, {"title", "Leaf"}, {"leaves", "Bare"},
                                                            {"Leaf", "VLMSDKObject"}};
    ASSERT_EQ(calls.size(), mentions.size());
    for (std::size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(calls[i].text);
        for (const auto& mention : mentions[i]) EXPECT_TRUE(contains(calls[i].text, mention)) << mention;
    }
}
