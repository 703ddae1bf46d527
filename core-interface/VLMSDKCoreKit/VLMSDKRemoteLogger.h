#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKLogger.h>

#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

VLMSDK_API_BEGIN

/// Keeps log lines for the SDK's remote logging in a bounded in-memory queue that the host drains and
/// forwards. Never blocks on I/O: when the queue is full the oldest line is dropped and counted.
class VLMSDKRemoteLogger final : public VLMSDKLogger {
public:
    /// Lines kept before the oldest is dropped, until `setCapacity` says otherwise.
    static constexpr std::size_t kDefaultCapacity = 1024;

    /// The process's remote logger. Never destroyed, so that threads may log while the process exits.
    static VLMSDKRemoteLogger& sharedLogger();

    /// Takes every queued line, oldest first.
    std::vector<VLMSDKLogRecord> drain();
    /// Lines dropped because the queue was full, since the start of the process.
    std::size_t droppedCount() const;
    /// The bound on queued lines.
    std::size_t capacity() const;
    /// Changes the bound (at least 1); drops the oldest lines at once if more are queued.
    void setCapacity(std::size_t capacity);

private:
    VLMSDKRemoteLogger();
    void write(VLMSDKLogRecord&& record) override;
    void trimLocked();

    mutable std::mutex mutex_;
    std::deque<VLMSDKLogRecord> queue_;
    std::size_t capacity_ = kDefaultCapacity;
    std::size_t dropped_ = 0;
};

VLMSDK_API_END
