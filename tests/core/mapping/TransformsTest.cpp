#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKVelmoraIDMapping.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using namespace std::chrono;

// A failing transform answers a mapping error, nothing else.
void expectMappingFailure(const VLMSDKMappedValue& mapped) {
    const auto* error = std::get_if<VLMErrorPtr>(&mapped);
    ASSERT_NE(error, nullptr) << "the transform did not fail";
    ASSERT_NE(*error, nullptr);
    EXPECT_EQ((*error)->domain(), kVLMSDKMappingErrorDomain);
    EXPECT_EQ((*error)->code(), VLMErrorCode::Mapping);
    EXPECT_FALSE((*error)->developerMessage().empty());
}

// A text result: the transform gave a JSON string with exactly this content.
void expectText(const VLMSDKMappedValue& mapped, const std::string& expected) {
    const auto* json = std::get_if<VLMSDKJSON>(&mapped);
    ASSERT_NE(json, nullptr) << "the transform gave no JSON value";
    ASSERT_TRUE(json->is_string()) << json->dump();
    EXPECT_EQ(json->get<std::string>(), expected);
}

}  // namespace

TEST(VLMSDKCurrencyMapping, TrimsAndUpperCasesTextAndRefusesEverythingElse) {
    struct Row {
        VLMSDKJSON input;
        std::optional<std::string> expected;  // nullopt: the transform fails
    };
    const std::vector<Row> rows = {
        {"usd", "USD"},
        {" eur\t", "EUR"},
        {"\n gbp \r\n", "GBP"},
        {"Chf", "CHF"},
        {"USD", "USD"},
        {"", ""},
        {"   ", ""},
        {"us d", "US D"},
        {"\xc3\xa9ur", "\xc3\xa9UR"},  // bytes beyond ASCII are kept as they are
        {12, std::nullopt},
        {1.5, std::nullopt},
        {true, std::nullopt},
        {VLMSDKJSON::array({"usd"}), std::nullopt},
        {VLMSDKJSON::object(), std::nullopt},
        {VLMSDKJSON(), std::nullopt},
    };
    const auto transform = VLMSDKCurrencyMapping::currencyAttributeMappingBlock();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input.dump());
        const auto mapped = transform(row.input);
        if (row.expected) {
            expectText(mapped, *row.expected);
        } else {
            expectMappingFailure(mapped);
        }
    }
}

TEST(VLMSDKDateMapping, ReadsExactlyYearMonthDayOfARealDate) {
    struct Row {
        VLMSDKJSON input;
        std::optional<year_month_day> expected;
    };
    const std::vector<Row> rows = {
        {"2026-11-21", 2026y / November / 21},
        {"2024-02-29", 2024y / February / 29},
        {"1999-12-31", 1999y / December / 31},
        {"0001-01-01", 1y / January / 1},
        {"2023-02-29", std::nullopt},  // not a leap year
        {"2026-04-31", std::nullopt},
        {"2026-13-01", std::nullopt},
        {"2026-00-10", std::nullopt},
        {"2026-11-00", std::nullopt},
        {"2026-1-21", std::nullopt},
        {"26-11-21", std::nullopt},
        {"2026/11/21", std::nullopt},
        {"20261121", std::nullopt},
        {" 2026-11-21", std::nullopt},
        {"2026-11-21 ", std::nullopt},
        {"2026-11-21T00:00:00Z", std::nullopt},
        {"2026-11-2a", std::nullopt},
        {"+026-11-21", std::nullopt},
        {"", std::nullopt},
        {20261121, std::nullopt},
        {true, std::nullopt},
        {VLMSDKJSON::array(), std::nullopt},
    };
    const auto transform = VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input.dump());
        const auto mapped = transform(row.input);
        if (row.expected) {
            const auto* date = std::get_if<VLMSDKDate>(&mapped);
            ASSERT_NE(date, nullptr);
            EXPECT_EQ(year_month_day(*date), *row.expected);
        } else {
            expectMappingFailure(mapped);
        }
    }
}

TEST(VLMSDKDateMapping, ReadsISO8601TimesAsUTC) {
    const VLMSDKTime expected = sys_days(2026y / November / 21) + 10h + 4min + 5s;
    struct Row {
        VLMSDKJSON input;
        std::optional<VLMSDKTime> expected;
    };
    const std::vector<Row> rows = {
        {"2026-11-21T10:04:05Z", expected},
        {"2026-11-21T10:04:05.123Z", expected},
        {"2026-11-21T10:04:05.999999Z", expected},  // fractions are dropped, not rounded
        {"2026-11-21T10:04:05+00:00", expected},
        {"2026-11-21T10:04:05-00:00", expected},
        {"2026-11-21T12:04:05+02:00", expected},
        {"2026-11-21T05:34:05-04:30", expected},
        {"2026-11-22T00:04:05+14:00", expected},
        {"2026-11-21T00:00:00Z", sys_days(2026y / November / 21)},
        {"2026-11-21T10:04:05", std::nullopt},
        {"2026-11-21 10:04:05Z", std::nullopt},
        {"2026-11-21t10:04:05z", std::nullopt},
        {"2026-11-21T24:00:00Z", std::nullopt},
        {"2026-11-21T10:60:05Z", std::nullopt},
        {"2026-11-21T10:04:60Z", std::nullopt},
        {"2026-11-21T10:04Z", std::nullopt},
        {"2026-11-21T10:04:05.Z", std::nullopt},
        {"2026-11-21T10:04:05+0200", std::nullopt},
        {"2026-11-21T10:04:05+24:00", std::nullopt},
        {"2026-11-21T10:04:05Zjunk", std::nullopt},
        {"2026-02-30T10:04:05Z", std::nullopt},
        {"2026-11-21", std::nullopt},
        {"", std::nullopt},
        {1795000000, std::nullopt},
        {VLMSDKJSON::object(), std::nullopt},
    };
    const auto transform = VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input.dump());
        const auto mapped = transform(row.input);
        if (row.expected) {
            const auto* time = std::get_if<VLMSDKTime>(&mapped);
            ASSERT_NE(time, nullptr);
            EXPECT_EQ(*time, *row.expected);
        } else {
            expectMappingFailure(mapped);
        }
    }
}

TEST(VLMSDKVelmoraIDMapping, KeepsTextAndWritesIntegersInDecimal) {
    struct Row {
        VLMSDKJSON input;
        std::optional<std::string> expected;
    };
    const std::vector<Row> rows = {
        {"a1b2-c3", "a1b2-c3"},
        {"", ""},
        {" 42 ", " 42 "},
        {42, "42"},
        {0, "0"},
        {-7, "-7"},
        {VLMSDKJSON(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
        {VLMSDKJSON(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615"},
        {VLMSDKJSON::parse("12345678901234567890"), "12345678901234567890"},
        {1.5, std::nullopt},
        {2.0, std::nullopt},  // a float, even an integral one, is no identifier
        {VLMSDKJSON::parse("1e3"), std::nullopt},
        {true, std::nullopt},
        {VLMSDKJSON::array({1}), std::nullopt},
        {VLMSDKJSON::object(), std::nullopt},
    };
    const auto transform = VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input.dump());
        const auto mapped = transform(row.input);
        if (row.expected) {
            expectText(mapped, *row.expected);
        } else {
            expectMappingFailure(mapped);
        }
    }
}
