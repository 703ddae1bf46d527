#include "FakeRequestManager.h"
#include "LogCapture.h"

#include <VLMSDKCoreKit/VLMSDKAPIManagerResponseValidator.h>

#include <gtest/gtest.h>

namespace {

struct Row {
    const char* name;
    FakeReply reply;
    std::vector<std::string> requiredKeys;
    bool passes;
    VLMErrorCode code;                       // when it fails
    std::optional<long> status;              // carried by the error
    std::optional<std::string> serverMessage;
};

}  // namespace

TEST(ResponseValidator, JudgesTransportStatusAndShapeAndSaysWhy) {
    const auto transport = VLMError::errorWithCode(VLMErrorCode::Timeout, kVLMSDKNetworkErrorDomain, "timed out", "f", "x");
    const VLMSDKJSON reservation = {{"reservation", {{"id", "r1"}}}};
    const std::vector<Row> rows = {
        {"2xx with the key", FakeReply::http(200, reservation), {"reservation"}, true, {}, {}, {}},
        {"299 is still success", FakeReply::http(299, reservation), {"reservation"}, true, {}, {}, {}},
        {"no keys required, no body", FakeReply::http(204), {}, true, {}, {}, {}},
        {"no keys required, an array", FakeReply::http(200, VLMSDKJSON::array()), {}, true, {}, {}, {}},
        {"transport error passes through", FakeReply::failure(transport), {}, false, VLMErrorCode::Timeout, {}, {}},
        {"no response at all", FakeReply{}, {}, false, VLMErrorCode::InvalidResponse, {}, {}},
        {"199", FakeReply::http(199, reservation), {"reservation"}, false, VLMErrorCode::HTTPStatus, 199, {}},
        {"300", FakeReply::http(300, reservation), {}, false, VLMErrorCode::HTTPStatus, 300, {}},
        {"404 with the service's error object",
         FakeReply::http(404, VLMSDKJSON{{"error", {{"code", "not_found"}, {"message", "No such reservation."}}}}),
         {"reservation"}, false, VLMErrorCode::HTTPStatus, 404, "No such reservation."},
        {"409 with a top-level message", FakeReply::http(409, VLMSDKJSON{{"message", "Too early."}}), {}, false,
         VLMErrorCode::HTTPStatus, 409, "Too early."},
        {"500 without a body", FakeReply::http(500), {}, false, VLMErrorCode::HTTPStatus, 500, {}},
        {"a required key missing", FakeReply::http(200, VLMSDKJSON{{"reservation", 1}}), {"reservation", "transaction"},
         false, VLMErrorCode::MissingRequiredKey, 200, {}},
        {"keys required but no body", FakeReply::http(200), {"reservation"}, false, VLMErrorCode::InvalidResponse, 200, {}},
        {"keys required but an array", FakeReply::http(200, VLMSDKJSON::array({"reservation"})), {"reservation"}, false,
         VLMErrorCode::InvalidResponse, 200, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto validator = VLMSDKAPIManagerResponseValidator::validatorForResponse(row.reply.response, row.reply.json,
                                                                                 row.reply.error);
        validator->setRequiredJSONKeys(row.requiredKeys);
        VLMErrorPtr error;
        EXPECT_EQ(validator->validate(&error), row.passes);
        if (row.passes) {
            EXPECT_EQ(error, nullptr);
            continue;
        }
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), row.code);
        EXPECT_EQ(error->httpStatusCode(), row.status);
        EXPECT_EQ(error->serverMessage(), row.serverMessage);
        if (row.serverMessage) {
            EXPECT_EQ(error->userMessage(), *row.serverMessage);
        }
        EXPECT_FALSE(error->developerMessage().empty());
    }
}

TEST(ResponseValidator, TheMissingKeyIsNamedAndATransportErrorIsTheVeryOneGiven) {
    auto validator = VLMSDKAPIManagerResponseValidator::validatorForResponse(
        FakeReply::http(200).response, FakeReply::http(200, VLMSDKJSON{{"reservation", 1}}).json, nullptr);
    validator->setRequiredJSONKeys({"reservation", "transaction"});
    VLMErrorPtr error;
    ASSERT_FALSE(validator->validate(&error));
    EXPECT_NE(error->developerMessage().find("'transaction'"), std::string::npos);

    const auto transport = VLMError::errorWithCode(VLMErrorCode::Transport, kVLMSDKNetworkErrorDomain, "refused", "f", "x");
    auto failing = VLMSDKAPIManagerResponseValidator::validatorForResponse(nullptr, nullptr, transport);
    ASSERT_FALSE(failing->validate(&error));
    EXPECT_EQ(error, transport);
}

TEST(ResponseValidator, LogsThePassOrTheFailMessageAndWorksWithoutAnOutParameter) {
    LogCapture logs;
    auto passing = VLMSDKAPIManagerResponseValidator::validatorForResponse(FakeReply::http(200).response, nullptr, nullptr);
    passing->setPassesLogMessage("It passed.");
    passing->setFailsLogMessage("It failed.");
    EXPECT_TRUE(passing->validate(nullptr));

    auto failing = VLMSDKAPIManagerResponseValidator::validatorForResponse(FakeReply::http(503).response, nullptr, nullptr);
    failing->setPassesLogMessage("It passed too.");
    failing->setFailsLogMessage("It failed.");
    EXPECT_FALSE(failing->validate(nullptr));

    const auto records = logs.consoleRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].message, "It passed.");
    EXPECT_EQ(records[0].level, static_cast<int>(VLMSDKLogLevel::Info));
    EXPECT_EQ(records[1].message.rfind("It failed. ", 0), 0u) << records[1].message;
    EXPECT_NE(records[1].message.find("503"), std::string::npos);
    EXPECT_EQ(records[1].level, static_cast<int>(VLMSDKLogLevel::Error));
}
