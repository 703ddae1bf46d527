#include "IsoTime.h"

#include <cstdio>
#include <ctime>

namespace pmssandbox {

std::string isoTime(std::chrono::system_clock::time_point time) {
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(millis / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(millis % 1000));
    return text;
}

}  // namespace pmssandbox
