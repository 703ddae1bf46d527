#include "RecordingAssertionHandler.h"

#include <Velmora_Errors/VLMError.h>
#include <Velmora_Meta/VLMUtilities.h>
#include <VLMSDKCoreKit/VLMSDKAsserts.h>
#include <VLMSDKCoreKit/VLMSDKTraceContext.h>

#include <gtest/gtest.h>

#include <cmath>

TEST(VLMError, ARequiredArgumentErrorNamesTheArgumentToDevelopersOnly) {
    auto error = VLMError::requiredArgumentErrorWithName("reservationID", std::nullopt, "fetch", "/x/VLMSDKThing.cpp");
    EXPECT_EQ(error->code(), VLMErrorCode::RequiredArgument);
    EXPECT_EQ(error->domain(), kVLMErrorDomain);
    EXPECT_NE(error->developerMessage().find("reservationID"), std::string::npos);
    EXPECT_FALSE(error->userMessage().empty());
    EXPECT_NE(error->userMessage().find("reservationID"), 0u);  // users are not shown the argument's name

    auto withMessage = VLMError::requiredArgumentErrorWithName("amount", "must not be zero", nullptr, nullptr);
    EXPECT_NE(withMessage->developerMessage().find("must not be zero"), std::string::npos);
    EXPECT_EQ(withMessage->functionName(), "");
}

TEST(VLMSDKTraceContext, ReadsOnlyWellFormedTraceparentsAndMakesFreshSpans) {
    const std::string trace = "4bf92f3577b34da6a3ce929d0e0e4736", span = "00f067aa0ba902b7";
    struct Row { std::string value; bool valid; bool sampled; };
    const Row rows[] = {
        {"00-" + trace + "-" + span + "-01", true, true},
        {"00-" + trace + "-" + span + "-00", true, false},
        {"01-" + trace + "-" + span + "-03-later-fields", true, true},  // a later version adds fields
        {"00-" + trace + "-" + span + "-01-more", false, false},       // version 00 has exactly four
        {"ff-" + trace + "-" + span + "-01", false, false},
        {"00-4BF92F3577B34DA6A3CE929D0E0E4736-" + span + "-01", false, false},  // uppercase
        {"00-00000000000000000000000000000000-" + span + "-01", false, false},
        {"00-" + trace + "-0000000000000000-01", false, false},
        {"00-" + trace + "-" + span + "-0g", false, false},
        {"00-" + trace + "-" + span, false, false},
        {"", false, false},
    };
    for (const Row& row : rows) {
        const auto context = VLMSDKTraceContext::fromTraceparent(row.value);
        ASSERT_EQ(context.has_value(), row.valid) << row.value;
        if (!context) continue;
        EXPECT_EQ(context->traceID, trace);
        EXPECT_EQ(context->spanID, span);
        EXPECT_EQ(context->sampled, row.sampled) << row.value;
    }
    const auto fresh = VLMSDKTraceContext::newTrace();
    const auto child = fresh.child();
    EXPECT_TRUE(fresh.isValid());
    EXPECT_EQ(child.traceID, fresh.traceID);
    EXPECT_NE(child.spanID, fresh.spanID);
    EXPECT_NE(VLMSDKTraceContext::newTrace().traceID, fresh.traceID);
    EXPECT_EQ(VLMSDKTraceContext::fromTraceparent(child.traceparent())->spanID, child.spanID);
}

TEST(VLMUtilities, PutsPresentValuesAndLeavesAbsentOnesOut) {
    VLMSDKJSON body;
    VLMUtilities::dictionary(body, std::optional<std::string>("Moreau"), "last_name");
    VLMUtilities::dictionary(body, std::optional<std::string>(""), "empty");
    VLMUtilities::dictionary(body, std::optional<std::string>(), "absent_text");
    VLMUtilities::dictionary(body, std::optional<double>(12.5), "amount");
    VLMUtilities::dictionary(body, std::optional<double>(), "absent_number");
    VLMUtilities::dictionary(body, std::optional<double>(std::nan("")), "nan");
    VLMUtilities::dictionary(body, std::optional<VLMSDKJSON>(VLMSDKJSON::array({1})), "items");
    // A NaN is kept, so that the request builder can refuse the body rather than send it without the key.
    ASSERT_TRUE(body.contains("nan") && std::isnan(body["nan"].get<double>()));
    body.erase("nan");
    EXPECT_EQ(body, (VLMSDKJSON{{"last_name", "Moreau"}, {"empty", ""}, {"amount", 12.5}, {"items", {1}}}));
}

TEST(VLMUtilities, StringEqualityAcceptsAbsentStrings) {
    using S = std::optional<std::string>;
    struct Row { S a, b; bool equal; };
    const Row rows[] = {{S(), S(), true}, {S("a"), S(), false}, {S(), S(""), false}, {S(""), S(""), true},
                        {S("a"), S("a"), true}, {S("a"), S("A"), false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.a.value_or("<absent>") << " vs " << row.b.value_or("<absent>"));
        EXPECT_EQ(VLMUtilities::string(row.a, row.b), row.equal);
        EXPECT_EQ(VLMUtilities::string(row.b, row.a), row.equal);
    }
}

TEST(VLMSDKAsserts, ForwardToTheInstalledHandlerAndReturn) {
    auto handler = RecordingAssertionHandler::install();
    VLMSDKAsserts::handleParameterAssert("requestInfo", std::nullopt);
    VLMSDKAsserts::handleAssertWithMessage("Configuration must have %s in kits array", "VLMSDKPMSKit");
    RecordingAssertionHandler::uninstall();
    VLMSDKAsserts::handleAssertWithMessage("the default handler logs and returns");
    const auto calls = handler->calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[0].isParameterAssert);
    EXPECT_EQ(calls[0].text, "requestInfo");
    EXPECT_NE(calls[0].file.find("ErrorAndUtilitiesTests.cpp"), std::string::npos);
    EXPECT_EQ(calls[1].text, "Configuration must have VLMSDKPMSKit in kits array");
}
