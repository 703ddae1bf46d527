#include "RecordingAssertionHandler.h"

#include <VLMSDKCoreKit/VLMSDKAsserts.h>

std::shared_ptr<RecordingAssertionHandler> RecordingAssertionHandler::install() {
    auto handler = std::make_shared<RecordingAssertionHandler>();
    VLMSDKAsserts::setHandler(handler);
    return handler;
}

void RecordingAssertionHandler::uninstall() { VLMSDKAsserts::setHandler(nullptr); }

void RecordingAssertionHandler::handleParameterAssert(const std::string& condition, const std::optional<std::string>&,
                                                      const char*, const char* file, int) {
    std::lock_guard lock(mutex_);
    calls_.push_back({condition, true, file ? file : ""});
}

void RecordingAssertionHandler::handleAssert(const std::string& message) {
    std::lock_guard lock(mutex_);
    calls_.push_back({message, false, ""});
}

std::vector<RecordingAssertionHandler::Call> RecordingAssertionHandler::calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
}
