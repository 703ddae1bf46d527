#pragma once

#include <atomic>
#include <chrono>
#include <string>

/// Levels of the SDK's log scale; lower is more severe.
enum class VLMSDKLogLevel : int { Error = 1, Warning = 2, Info = 3, Debug = 4 };

/// One log line, before and after formatting.
struct VLMSDKLogRecord {
    std::chrono::system_clock::time_point time;
    int level = 0;
    std::string file;
    int line = 0;
    std::string function;
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
    int maximumLevel() const { return maximumLevel_.load(std::memory_order_relaxed); }
    void setMaximumLevel(int level) { maximumLevel_.store(level, std::memory_order_relaxed); }

protected:
    explicit VLMSDKLogger(int maximumLevel) : maximumLevel_(maximumLevel) {}
    virtual void write(VLMSDKLogRecord&& record) = 0;

private:
    std::atomic<int> maximumLevel_;
};
