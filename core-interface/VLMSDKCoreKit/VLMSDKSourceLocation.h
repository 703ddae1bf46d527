#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

VLMSDK_API_BEGIN

/// Where a piece of code stands: file, function and line, as the compiler reports them at the call site
/// when used as a default argument. (Works on every supported compiler, unlike std::source_location.)
struct VLMSDKSourceLocation {
    /// The source file's path.
    const char* file = "";
    /// The function's name.
    const char* function = "";
    /// The line.
    int line = 0;

    /// The caller's location, when called with no arguments.
    static constexpr VLMSDKSourceLocation current(const char* file = __builtin_FILE(),
                                                  const char* function = __builtin_FUNCTION(),
                                                  int line = __builtin_LINE()) noexcept {
        return VLMSDKSourceLocation{file, function, line};
    }
};

VLMSDK_API_END
