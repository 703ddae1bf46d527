#include "LogCapture.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRemoteLogger.h>

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
    auto& console = VLMSDKConsoleLogger::sharedLogger();
    previousConsoleLevel_ = console.maximumLevel();
    console.setMaximumLevel(static_cast<int>(VLMSDKLogLevel::Debug));
    console.setSink([state = state_](const VLMSDKLogRecord& record) {
        std::lock_guard lock(state->mutex);
        state->records.push_back(record);
    });
    VLMSDKRemoteLogger::sharedLogger().drain();
}

LogCapture::~LogCapture() {
    auto& console = VLMSDKConsoleLogger::sharedLogger();
    console.setSink(nullptr);
    console.setMaximumLevel(previousConsoleLevel_);
    VLMSDKRemoteLogger::sharedLogger().drain();
}

std::vector<VLMSDKLogRecord> LogCapture::consoleRecords() const {
    std::lock_guard lock(state_->mutex);
    return state_->records;
}

std::vector<VLMSDKLogRecord> LogCapture::drainRemote() { return VLMSDKRemoteLogger::sharedLogger().drain(); }

bool LogCapture::consoleHasMessage(const std::string& message) const {
    std::lock_guard lock(state_->mutex);
    for (const auto& record : state_->records) {
        if (record.message == message) return true;
    }
    return false;
}
