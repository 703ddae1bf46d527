#include "BenchSupport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <sys/resource.h>
#include <unistd.h>

namespace vlmsdk::bench {

double secondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

ProcessUsage processUsage() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto micros = [](const timeval& t) { return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec); };
    return {micros(usage.ru_utime), micros(usage.ru_stime), static_cast<double>(usage.ru_nvcsw + usage.ru_nivcsw)};
}

ThreadSplit threadSplit() {
    ThreadSplit split;
    const std::string self = std::to_string(getpid());
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::ifstream schedstat(task.path() / "schedstat");
        double nanoseconds = 0;
        if (!(schedstat >> nanoseconds)) continue;
        (task.path().filename() == self ? split.mainMicroseconds : split.otherMicroseconds) += nanoseconds / 1000;
    }
    return split;
}

double quantile(std::vector<double>& values, double q) {
    if (values.empty()) return 0;
    const auto count = values.size();
    auto rank = static_cast<std::size_t>(std::ceil(q * static_cast<double>(count)));
    rank = std::clamp<std::size_t>(rank, 1, count);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rank - 1), values.end());
    return values[rank - 1];
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const auto middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::optional<long> procStatusField(const char* name) {
    std::ifstream status("/proc/self/status");
    const std::string prefix = std::string(name) + ":";
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, prefix.size(), prefix) != 0) continue;
        return std::strtol(line.c_str() + prefix.size(), nullptr, 10);
    }
    return std::nullopt;
}

bool isLoopbackTarget(const std::string& url) {
    return url.rfind("https://localhost:", 0) == 0 || url.rfind("https://127.0.0.1:", 0) == 0 ||
           url.rfind("http://127.0.0.1:", 0) == 0;
}

std::string loadAverage() {
    std::ifstream file("/proc/loadavg");
    std::string one, five, fifteen;
    file >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

MachineInfo machineInfo() {
    MachineInfo info;
    info.cores = std::thread::hardware_concurrency();
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line;
    while (std::getline(cpuinfo, line)) {
        if (line.rfind("model name", 0) != 0) continue;
        const auto colon = line.find(':');
        if (colon != std::string::npos) info.cpuModel = line.substr(line.find_first_not_of(" \t", colon + 1));
        break;
    }
    info.loadAverage = loadAverage();
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M", &utc);
    info.date = stamp;
    return info;
}

void printMachine(const char* program) {
    const MachineInfo info = machineInfo();
    std::printf("%s: %u cores, %s, load average %s, %s UTC\n", program, info.cores, info.cpuModel.c_str(),
                info.loadAverage.c_str(), info.date.c_str());
}

nlohmann::json reportHeader(const char* program, const char* buildType) {
    const MachineInfo info = machineInfo();
    return {{"program", program},
            {"build_type", buildType},
            {"machine", {{"cores", info.cores}, {"cpu", info.cpuModel}, {"load_average", info.loadAverage},
                         {"date_utc", info.date}}}};
}

bool writeReport(const std::string& path, const nlohmann::json& report) {
    if (path.empty()) return true;
    std::ofstream out(path, std::ios::trunc);
    out << report.dump(2) << '\n';
    out.close();
    if (!out) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        return false;
    }
    return true;
}

CommandLine::CommandLine(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            help_ = true;
            continue;
        }
        if (argument.rfind("--", 0) != 0) {
            problems_.push_back("unexpected argument '" + argument + "'");
            continue;
        }
        argument.erase(0, 2);
        if (const auto equals = argument.find('='); equals != std::string::npos) {
            given_[argument.substr(0, equals)] = argument.substr(equals + 1);
        } else if (i + 1 < argc) {
            given_[argument] = argv[++i];
        } else {
            problems_.push_back("--" + argument + " needs a value");
        }
    }
}

double CommandLine::number(const std::string& name, double fallback) {
    asked_[name] = true;
    const auto found = given_.find(name);
    if (found == given_.end()) return fallback;
    char* end = nullptr;
    const double value = std::strtod(found->second.c_str(), &end);
    if (end == found->second.c_str() || *end != '\0' || !std::isfinite(value) || value < 0) {
        problems_.push_back("--" + name + " wants a number of at least 0, not '" + found->second + "'");
        return fallback;
    }
    return value;
}

std::string CommandLine::text(const std::string& name, const std::string& fallback) {
    asked_[name] = true;
    const auto found = given_.find(name);
    return found == given_.end() ? fallback : found->second;
}

std::vector<std::string> CommandLine::problems() const {
    std::vector<std::string> all = problems_;
    for (const auto& [name, value] : given_) {
        if (!asked_.count(name)) all.push_back("unknown option --" + name);
    }
    return all;
}

}  // namespace vlmsdk::bench
