#pragma once

/// Where a piece of code stands: file, function and line, as the compiler reports them at the call site
/// when used as a default argument. (Works on every supported compiler, unlike std::source_location.)
struct VLMSDKSourceLocation {
    const char* file = "";
    const char* function = "";
    int line = 0;

    static constexpr VLMSDKSourceLocation current(const char* file = __builtin_FILE(),
                                                  const char* function = __builtin_FUNCTION(),
                                                  int line = __builtin_LINE()) noexcept {
        return VLMSDKSourceLocation{file, function, line};
    }
};
