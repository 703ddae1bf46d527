#pragma once

#include <chrono>
#include <string>

namespace pmssandbox {

/// "2026-11-23T09:41:07.250Z": UTC, to the millisecond.
std::string isoTime(std::chrono::system_clock::time_point time);

}  // namespace pmssandbox
