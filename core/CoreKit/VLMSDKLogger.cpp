#include <VLMSDKCoreKit/VLMSDKLogger.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <vector>

namespace {

char levelLetter(int level) {
    switch (level) {
    case 1: return 'E';
    case 2: return 'W';
    case 3: return 'I';
    case 4: return 'D';
    default: return '?';
    }
}

std::string_view lastPathComponent(std::string_view path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string vformat(const char* format, va_list arguments) {
    if (!format) return {};
    char small[256];
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (length < 0) return format;
    if (static_cast<std::size_t>(length) < sizeof small) return std::string(small, static_cast<std::size_t>(length));
    std::vector<char> large(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(large.data(), large.size(), format, arguments);
    return std::string(large.data(), static_cast<std::size_t>(length));
}

}  // namespace

std::string VLMSDKLogRecord::formatted() const {
    using namespace std::chrono;
    const auto seconds = time_point_cast<std::chrono::seconds>(time);
    const auto millis = duration_cast<milliseconds>(time - seconds).count();
    const std::time_t t = system_clock::to_time_t(seconds);
    std::tm utc{};
    gmtime_r(&t, &utc);
    char stamp[96];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(millis));
    std::string out;
    out.reserve(64 + file.size() + function.size() + message.size());
    out += stamp;
    out += ' ';
    out += levelLetter(level);
    out += ' ';
    out += lastPathComponent(file);
    out += ':';
    out += std::to_string(line);
    out += ' ';
    out += function;
    out += ": ";
    out += message;
    return out;
}

void VLMSDKLogger::logWithLevel(int level, const char* path, int line, const char* function, const char* format, ...) {
    if (level > maximumLevel()) return;
    VLMSDKLogRecord record;
    record.time = std::chrono::system_clock::now();
    record.level = level;
    record.file = path ? path : "";
    record.line = line;
    record.function = function ? function : "";
    va_list arguments;
    va_start(arguments, format);
    record.message = vformat(format, arguments);
    va_end(arguments);
    write(std::move(record));
}
