#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKVelmoraIDMapping.h>

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono;

// Runs `transform` over `rows`: a row with a value expects exactly that result (text as a JSON string), a row
// without one expects a mapping error.
template <class T>
void expectRows(const VLMSDKAttributeMappingBlock& transform,
                const std::vector<std::pair<VLMSDKJSON, std::optional<T>>>& rows) {
    for (const auto& [input, expected] : rows) {
        SCOPED_TRACE(input.dump());
        const VLMSDKMappedValue mapped = transform(input);
        if (!expected) {
            const auto* error = std::get_if<VLMErrorPtr>(&mapped);
            ASSERT_TRUE(error && *error) << "the transform did not fail";
            EXPECT_EQ((*error)->domain(), kVLMSDKMappingErrorDomain);
            EXPECT_EQ((*error)->code(), VLMErrorCode::Mapping);
        } else if constexpr (std::is_same_v<T, std::string>) {
            const auto* json = std::get_if<VLMSDKJSON>(&mapped);
            ASSERT_TRUE(json && json->is_string()) << "the transform gave no text";
            EXPECT_EQ(json->get<std::string>(), *expected);
        } else {
            const auto* value = std::get_if<T>(&mapped);
            ASSERT_NE(value, nullptr) << "the transform gave another kind of value";
            EXPECT_EQ(*value, *expected);
        }
    }
}

}  // namespace

TEST(VLMSDKCurrencyMapping, TrimsAndUpperCasesTextAndRefusesEverythingElse) {
    expectRows<std::string>(VLMSDKCurrencyMapping::currencyAttributeMappingBlock(),
                            {{"\n\tChf \r", "CHF"}, {"us d", "US D"}, {"   ", ""},
                             {"\xc3\xa9ur", "\xc3\xa9UR"},  // bytes beyond ASCII are kept as they are
                             {12, std::nullopt}});
}

TEST(VLMSDKDateMapping, ReadsExactlyYearMonthDayOfARealDate) {
    expectRows<VLMSDKDate>(VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock(),
                           {{"2026-11-21", sys_days(2026y / November / 21)},
                            {"2024-02-29", sys_days(2024y / February / 29)},
                            {"2023-02-29", std::nullopt},  // not a leap year
                            {"2026-13-01", std::nullopt}, {"2026-1-21", std::nullopt}, {"2026/11/21", std::nullopt},
                            {"2026-11-2a", std::nullopt}, {"+026-11-21", std::nullopt},
                            {"2026-11-21T00:00:00Z", std::nullopt}, {20261121, std::nullopt}});
}

TEST(VLMSDKDateMapping, ReadsISO8601TimesAsUTC) {
    const VLMSDKTime expected = sys_days(2026y / November / 21) + 10h + 4min + 5s;
    expectRows<VLMSDKTime>(VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock(),
                           {{"2026-11-21T10:04:05Z", expected},
                            {"2026-11-21T10:04:05.999999Z", expected},  // fractions are dropped, not rounded
                            {"2026-11-21T12:04:05+02:00", expected}, {"2026-11-21T05:34:05-04:30", expected},
                            {"2026-11-21T10:04:05", std::nullopt}, {"2026-11-21 10:04:05Z", std::nullopt},
                            {"2026-11-21T24:00:00Z", std::nullopt}, {"2026-11-21T10:04:60Z", std::nullopt},
                            {"2026-11-21T10:04Z", std::nullopt}, {"2026-11-21T10:04:05.Z", std::nullopt},
                            {"2026-11-21T10:04:05+24:00", std::nullopt}, {"2026-11-21T10:04:05Zjunk", std::nullopt},
                            {"2026-02-30T10:04:05Z", std::nullopt}, {1795000000, std::nullopt}});
}

TEST(VLMSDKVelmoraIDMapping, KeepsTextAndWritesIntegersInDecimal) {
    expectRows<std::string>(VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock(),
                            {{" 42 ", " 42 "},
                             {VLMSDKJSON(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
                             {VLMSDKJSON(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615"},
                             {2.0, std::nullopt},  // a float, even an integral one, is no identifier
                             {true, std::nullopt}});
}
