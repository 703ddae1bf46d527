#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKLogger.h>

#include <functional>
#include <memory>
#include <mutex>

VLMSDK_API_BEGIN

/// Writes each line, whole, to standard error; or, once a host or test sets a sink, hands it there.
class VLMSDKConsoleLogger final : public VLMSDKLogger {
public:
    /// Receives each line, whole, as a record.
    using Sink = std::function<void(const VLMSDKLogRecord&)>;

    /// The process's console logger. Never destroyed, so that threads may log while the process exits.
    static VLMSDKConsoleLogger& sharedLogger();

    /// Sends lines to `sink` instead of standard error (an empty sink restores standard error).
    /// The sink is called on the logging thread, one line at a time.
    void setSink(Sink sink);

private:
    VLMSDKConsoleLogger();
    void write(VLMSDKLogRecord&& record) override;

    std::mutex mutex_;
    std::shared_ptr<const Sink> sink_;
};

VLMSDK_API_END
