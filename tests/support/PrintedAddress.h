#pragma once

#include <cstdio>
#include <string>

/// printf's %p of `pointer`, as the records' descriptions print their addresses.
inline std::string printedAddress(const void* pointer) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%p", pointer);
    return buffer;
}
