#include "TestSupport.h"

#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <variant>

namespace {

using records_test::transformFor;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// What a row expects back: the input itself (value and JSON kind), or a new JSON floating-point number.
struct Expected {
    enum Kind { SameAsInput, Number } kind;
    double number = 0;
};
constexpr Expected same{Expected::SameAsInput};
constexpr Expected number(double value) { return {Expected::Number, value}; }

struct Row {
    const char* label;
    VLMSDKJSON input;
    Expected expected;
};

void expectRow(const VLMSDKAttributeMappingBlock& transform, const Row& row) {
    SCOPED_TRACE(row.label);
    const VLMSDKMappedValue mapped = transform(row.input);
    const auto* json = std::get_if<VLMSDKJSON>(&mapped);
    ASSERT_NE(json, nullptr) << "the transform gave no JSON value";
    if (row.expected.kind == Expected::SameAsInput) {
        EXPECT_EQ(json->type(), row.input.type());
        EXPECT_EQ(*json, row.input);
        return;
    }
    ASSERT_TRUE(json->is_number_float()) << json->dump();
    const double value = json->get<double>();
    if (std::isnan(row.expected.number)) {
        EXPECT_TRUE(std::isnan(value)) << value;
    } else {
        EXPECT_EQ(value, row.expected.number);
        // Tells -0 from 0, which == does not.
        EXPECT_EQ(std::signbit(value), std::signbit(row.expected.number)) << value;
    }
}

TEST(Transforms, NotSyncedAmountKeepsPositiveInputAndFlipsTheRest) {
    const auto transform =
        transformFor(VLMSDKReservation::objectMapping(), VLMSDKReservationJSONKeyes.notSyncedAmount);
    const Row rows[] = {
        {"positive number", VLMSDKJSON(25.5), same},
        {"positive integer", VLMSDKJSON(40), same},
        {"positive unsigned", VLMSDKJSON(40u), same},
        {"positive text", VLMSDKJSON("25.5"), same},
        {"positive text with trailing words", VLMSDKJSON("25.5 EUR"), same},
        {"tiny positive number", VLMSDKJSON(1e-50), same},
        {"infinite number", VLMSDKJSON(kInfinity), same},
        {"negative number", VLMSDKJSON(-12.3), number(12.3)},
        {"negative integer", VLMSDKJSON(-7), number(7)},
        {"negative text", VLMSDKJSON("-12.3"), number(12.3)},
        {"negative text with spaces", VLMSDKJSON("  -12.3  "), number(12.3)},
        {"zero", VLMSDKJSON(0), number(-0.0)},
        {"zero float", VLMSDKJSON(0.0), number(-0.0)},
        {"negative zero", VLMSDKJSON(-0.0), number(0.0)},
        {"text with no number", VLMSDKJSON("abc"), number(-0.0)},
        {"empty text", VLMSDKJSON(""), number(-0.0)},
        {"text zero", VLMSDKJSON("0.00"), number(-0.0)},
        {"NaN", VLMSDKJSON(kNaN), number(kNaN)},
        {"text nan is no decimal", VLMSDKJSON("nan"), number(-0.0)},
        {"negative overflowing text", VLMSDKJSON("-1e999"), number(kInfinity)},
        {"boolean reads as zero", VLMSDKJSON(true), number(-0.0)},
        {"array reads as zero", VLMSDKJSON::array({5}), number(-0.0)},
        {"object reads as zero", VLMSDKJSON::object({{"a", 5}}), number(-0.0)},
        {"null passes through", VLMSDKJSON(nullptr), same},
    };
    for (const auto& row : rows) expectRow(transform, row);
}

TEST(Transforms, AmountTextTurnsTextIntoItsNumberAndPassesTheRest) {
    const auto transform =
        transformFor(VLMSDKFolioDeliverableItem::objectMapping(), VLMSDKFolioDeliverableItemJSONKeyes.amount);
    const Row rows[] = {
        {"decimal text", VLMSDKJSON("9.90"), number(9.9)},
        {"negative text keeps its sign", VLMSDKJSON("-5.00"), number(-5)},
        {"integer text", VLMSDKJSON("12"), number(12)},
        {"explicit plus", VLMSDKJSON("+3.5"), number(3.5)},
        {"leading white space", VLMSDKJSON(" \t\n7.25"), number(7.25)},
        {"trailing words", VLMSDKJSON("19.99 USD"), number(19.99)},
        {"comma is not a decimal point", VLMSDKJSON("1,5"), number(1)},
        {"fraction only", VLMSDKJSON(".5"), number(0.5)},
        {"trailing point", VLMSDKJSON("4."), number(4)},
        {"exponent", VLMSDKJSON("1.5e2"), number(150)},
        {"dangling exponent", VLMSDKJSON("2e"), number(2)},
        {"hexadecimal is not decimal", VLMSDKJSON("0x10"), number(0)},
        {"infinity word is not decimal", VLMSDKJSON("inf"), number(0)},
        {"overflow", VLMSDKJSON("1e999"), number(kInfinity)},
        {"underflow", VLMSDKJSON("-1e-999"), number(-0.0)},
        {"text with no number", VLMSDKJSON("abc"), number(0)},
        {"empty text", VLMSDKJSON(""), number(0)},
        {"lone sign", VLMSDKJSON("-"), number(0)},
        {"integer number", VLMSDKJSON(12), same},
        {"float number", VLMSDKJSON(-3.25), same},
        {"null", VLMSDKJSON(nullptr), same},
        {"array", VLMSDKJSON::array({"1"}), same},
        {"boolean", VLMSDKJSON(false), same},
    };
    for (const auto& row : rows) expectRow(transform, row);
}

}  // namespace
