#pragma once

// Header only, for tests written with GoogleTest: it needs gMock (<gmock/gmock.h>, and linking GTest::gmock),
// which the VLMSDKPMSKitTesting library itself does not.

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <gmock/gmock.h>

#include <memory>

VLMSDK_API_BEGIN

/// A request manager whose three calls are gMock methods, for a test that states its expectations with
/// EXPECT_CALL and answers from its actions (`completion(json, response, error)`, exactly once, as any request
/// manager must). By default `performControlledRequest` does what the base class does (a request cancelled
/// already gets the cancelled error, others go to `performDataTaskRequest`) and `checksExpectedReplies` is false.
/// Thread-safe as gMock is: calls may come from any thread.
class VLMSDKMockRequestManager : public VLMSDKRequestManager {
public:
    /// Installs the defaults described above.
    VLMSDKMockRequestManager() {
        ON_CALL(*this, performControlledRequest)
            .WillByDefault([this](std::shared_ptr<const VLMSDKRequest> request, const VLMSDKRequestControl& control,
                                  VLMSDKDataTaskCompletion completion) {
                VLMSDKRequestManager::performControlledRequest(std::move(request), control, std::move(completion));
            });
        ON_CALL(*this, checksExpectedReplies).WillByDefault(::testing::Return(false));
    }

    /// Sends one request; the test's action must call the completion exactly once.
    MOCK_METHOD(void, performDataTaskRequest,
                (std::shared_ptr<const VLMSDKRequest> request, VLMSDKDataTaskCompletion completion), (override));
    /// Sends one request under a control; by default as the base class does.
    MOCK_METHOD(void, performControlledRequest,
                (std::shared_ptr<const VLMSDKRequest> request, const VLMSDKRequestControl& control,
                 VLMSDKDataTaskCompletion completion),
                (override));
    /// Whether the manager checks expected replies itself; by default false (the kit checks).
    MOCK_METHOD(bool, checksExpectedReplies, (), (const, override));
};

VLMSDK_API_END
