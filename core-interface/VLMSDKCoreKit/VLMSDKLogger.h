#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <atomic>
#include <chrono>
#include <string>

VLMSDK_API_BEGIN

/// \file
/// The SDK's log levels, log lines and what its loggers share.

/// Levels of the SDK's log scale; lower is more severe.
enum class VLMSDKLogLevel : int { Error = 1, Warning = 2, Info = 3, Debug = 4 };

/// \var VLMSDKLogLevel::Error
/// Something failed ("E").
/// \var VLMSDKLogLevel::Warning
/// Something is amiss, and the work goes on ("W").
/// \var VLMSDKLogLevel::Info
/// What happened, such as a reply that passed its checks ("I").
/// \var VLMSDKLogLevel::Debug
/// Detail for a developer ("D").

/// One log line, before and after formatting.
struct VLMSDKLogRecord {
    /// When the line was logged.
    std::chrono::system_clock::time_point time;
    /// Its level, a VLMSDKLogLevel value.
    int level = 0;
    /// The source file's path as the caller gave it; `formatted()` shows its last component.
    std::string file;
    /// The source line.
    int line = 0;
    /// The function that logged.
    std::string function;
    /// The message, its printf-style arguments filled in.
    std::string message;

    /// "2026-11-21T10:04:05.123Z E VLMSDKAPIManager+Reservation.cpp:49 function: message"
    std::string formatted() const;
};

/// What the two loggers share: printf-style logging with a level filter. Thread-safe.
class VLMSDKLogger {
public:
    virtual ~VLMSDKLogger() = default;

    /// Formats and writes one line unless `level` is above `maximumLevel()`.
    void logWithLevel(int level, const char* path, int line, const char* function, const char* format, ...)
        __attribute__((format(printf, 6, 7)));

    /// Lines with a level above this are dropped. The console logger starts at Warning, the remote at Info.
    ///@{
    int maximumLevel() const { return maximumLevel_.load(std::memory_order_relaxed); }
    void setMaximumLevel(int level) { maximumLevel_.store(level, std::memory_order_relaxed); }
    ///@}

protected:
    /// A logger that keeps lines up to `maximumLevel`.
    explicit VLMSDKLogger(int maximumLevel) : maximumLevel_(maximumLevel) {}
    /// Takes one line that passed the filter, on the logging thread.
    virtual void write(VLMSDKLogRecord&& record) = 0;

private:
    std::atomic<int> maximumLevel_;
};

VLMSDK_API_END
