#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>

#include <cstdio>

VLMSDKConsoleLogger& VLMSDKConsoleLogger::sharedLogger() {
    // Never destroyed: other threads may log while static destructors run at exit.
    static VLMSDKConsoleLogger* logger = new VLMSDKConsoleLogger;
    return *logger;
}

VLMSDKConsoleLogger::VLMSDKConsoleLogger() : VLMSDKLogger(static_cast<int>(VLMSDKLogLevel::Warning)) {}

void VLMSDKConsoleLogger::setSink(Sink sink) {
    std::lock_guard lock(mutex_);
    sink_ = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
}

void VLMSDKConsoleLogger::write(VLMSDKLogRecord&& record) {
    std::shared_ptr<const Sink> sink;
    {
        std::lock_guard lock(mutex_);
        sink = sink_;
    }
    if (sink) {
        (*sink)(record);
        return;
    }
    std::string line = record.formatted();
    line += '\n';
    // One write per line keeps lines from different threads whole.
    std::fwrite(line.data(), 1, line.size(), stderr);
}
