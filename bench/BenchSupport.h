#pragma once

// Small helpers the benchmark programs share: clocks, CPU time, percentiles, /proc readings and a
// command line of "--name value" options.

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vlmsdk::bench {

using Clock = std::chrono::steady_clock;

/// Seconds from `from` to `to`.
double secondsBetween(Clock::time_point from, Clock::time_point to);

/// CPU time of this process (all its threads, no child process) and its context switches so far.
struct ProcessUsage {
    double userMicroseconds = 0;
    double systemMicroseconds = 0;
    double contextSwitches = 0;  ///< voluntary (a thread waited) and involuntary (it was preempted)

    double cpuMicroseconds() const { return userMicroseconds + systemMicroseconds; }
    ProcessUsage operator-(const ProcessUsage& earlier) const {
        return {userMicroseconds - earlier.userMicroseconds, systemMicroseconds - earlier.systemMicroseconds,
                contextSwitches - earlier.contextSwitches};
    }
};
ProcessUsage processUsage();

/// CPU time so far of this process's main thread and of all its other threads together, in microseconds
/// (the scheduler's nanosecond clock, /proc/self/task/*/schedstat). Threads that ended are not counted.
struct ThreadSplit {
    double mainMicroseconds = 0;
    double otherMicroseconds = 0;
};
ThreadSplit threadSplit();

/// The nearest-rank quantile `q` (0..1) of `values`, which it reorders; 0 for no values.
double quantile(std::vector<double>& values, double q);

/// The median of `values` (the mean of the two middle ones for an even count); 0 for no values.
double median(std::vector<double> values);

/// A numeric field of /proc/self/status such as "VmRSS" or "VmHWM" (kB) or "Threads"; nothing if absent.
std::optional<long> procStatusField(const char* name);

/// What the results depend on: cores, CPU model, load average and the time of the run.
struct MachineInfo {
    unsigned cores = 0;
    std::string cpuModel;
    std::string loadAverage;  ///< the 1, 5 and 15 minute load averages
    std::string date;         ///< UTC, "YYYY-MM-DD HH:MM"
};
MachineInfo machineInfo();
std::string loadAverage();

/// Whether `url` is a target the benchmarks may send to: https://localhost:PORT, https:// or http:// 127.0.0.1.
bool isLoopbackTarget(const std::string& url);

/// Prints the machine line every program starts with.
void printMachine(const char* program);

/// The start of every program's --json document: its name, the build type and the machine.
nlohmann::json reportHeader(const char* program, const char* buildType);

/// Writes `report` to `path` (when not empty); false, with a line on standard error, when it cannot.
bool writeReport(const std::string& path, const nlohmann::json& report);

/// Keeps the compiler from dropping a computation whose result is otherwise unused.
template <class T>
inline void keep(const T& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

/// "--name value" and "--name=value" options, plus "--help". Unknown options are errors.
class CommandLine {
public:
    CommandLine(int argc, char** argv);

    /// The number given for `name`, or `fallback`. A value that is no number is an error.
    double number(const std::string& name, double fallback);
    /// The text given for `name`, or `fallback`.
    std::string text(const std::string& name, const std::string& fallback);
    bool wantsHelp() const { return help_; }
    /// Problems found so far, and options given that no one asked for; empty when all is well.
    std::vector<std::string> problems() const;

private:
    std::map<std::string, std::string> given_;
    std::map<std::string, bool> asked_;
    std::vector<std::string> problems_;
    bool help_ = false;
};

}  // namespace vlmsdk::bench
