#pragma once

#include "FakeRequestManager.h"
#include "RecordingAssertionHandler.h"

#include <VLMSDKCoreKit/VLMSDKAPIManager.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <gtest/gtest.h>

#include <memory>

/// An API manager whose requests go to a fake request manager, with a recording assertion handler and
/// an empty main queue at both ends of each test.
class KitTestFixture : public testing::Test {
protected:
    void SetUp() override {
        VLMSDKMainQueue::drain();
        asserts = RecordingAssertionHandler::install();
        requests = std::make_shared<FakeRequestManager>();
        manager = std::make_shared<VLMSDKAPIManager>(std::make_shared<VLMSDKRequestBuilder>("http://127.0.0.1:9/"),
                                                     requests);
    }
    void TearDown() override {
        VLMSDKMainQueue::drain();
        RecordingAssertionHandler::uninstall();
    }

    std::shared_ptr<RecordingAssertionHandler> asserts;
    std::shared_ptr<FakeRequestManager> requests;
    std::shared_ptr<VLMSDKAPIManager> manager;
};
