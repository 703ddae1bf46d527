#pragma once

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <array>
#include <cstddef>
#include <string>

/// What one operation's completion received, counted: every operation must complete exactly once.
struct FuzzOutcome {
    int completions = 0;
    bool offMainThread = false;
    bool result = false;  // a record, or true for check-out
    VLMErrorPtr error;
};

/// The eight operations, each started with one identifier (pay and charge carry it in their request), a
/// valid request otherwise, and a completion that fills `outcome`.
struct FuzzOperation {
    const char* name;
    const char* method;
    const char* pathFormat;  // "%@" marks the identifier; create has none
    void (*start)(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome);
};

const std::array<FuzzOperation, 8>& fuzzOperations();

/// Traps (a finding) unless `condition` holds.
inline void fuzzRequire(bool condition) {
    if (!condition) __builtin_trap();
}
