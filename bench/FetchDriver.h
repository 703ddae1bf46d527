#pragma once

// What vlmsdk-bench-fetch's clients share: a measured stretch, the budget that bounds it and the driver
// interface each client implements.

#include "BenchSupport.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vlmsdk::bench {

/// What one measured stretch produced.
struct Measurement {
    std::size_t requests = 0;
    std::size_t failures = 0;
    double seconds = 0;
    ProcessUsage client;
    ThreadSplit threads;   // microseconds, main thread and the others
    double serverCPU = 0;  // microseconds
    std::uint64_t connections = 0;
    std::uint64_t allocations = 0;
    std::vector<double> latencies;  // microseconds

    void record(Clock::time_point started, bool ok) {
        latencies.push_back(std::chrono::duration<double, std::micro>(Clock::now() - started).count());
        ++requests;
        if (!ok) ++failures;
    }
    double perSecond() const { return seconds > 0 ? static_cast<double>(requests) / seconds : 0; }
    double perRequest(double total) const { return requests ? total / static_cast<double>(requests) : 0; }
    double serverBusy() const { return seconds > 0 ? serverCPU / (seconds * 1e6) : 0; }
};

/// How many more requests a stretch may start: until a deadline or a count, whichever comes first.
/// Not thread-safe: a client whose completions run on several threads calls it under its own lock.
class Budget {
public:
    Budget(double seconds, std::size_t maximum)
        : deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
          maximum_(maximum) {}

    bool another() {
        if (issued_ >= maximum_ || Clock::now() >= deadline_) return false;
        ++issued_;
        return true;
    }

private:
    Clock::time_point deadline_;
    std::size_t maximum_;
    std::size_t issued_ = 0;
};

class Driver {
public:
    virtual ~Driver() = default;
    virtual const char* name() const = 0;
    /// Keeps `inFlight` requests outstanding while `budget` allows, then waits for the last answer.
    virtual void run(std::size_t inFlight, Budget& budget, Measurement& measurement) = 0;
};

}  // namespace vlmsdk::bench
