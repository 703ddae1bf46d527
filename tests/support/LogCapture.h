#pragma once

#include <VLMSDKCoreKit/VLMSDKLogger.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// Captures console log lines (every level) for its lifetime, and empties the remote logger's queue at
/// both ends so that a test sees only its own remote lines.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<VLMSDKLogRecord> consoleRecords() const;
    std::vector<VLMSDKLogRecord> drainRemote();
    /// True when some console line's message equals `message` exactly.
    bool consoleHasMessage(const std::string& message) const;

private:
    struct State {
        std::mutex mutex;
        std::vector<VLMSDKLogRecord> records;
    };
    std::shared_ptr<State> state_;
    int previousConsoleLevel_;
};
