#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// Receives the SDK's failed checks. An interface, so that a host (to stop a debug build) or a test (to
/// record) can install its own with `VLMSDKAsserts::setHandler`. Every call must return.
class VLMSDKAssertionHandler {
public:
    virtual ~VLMSDKAssertionHandler() = default;

    /// A failed argument check: `condition` is the text of the check (an argument's name, say).
    virtual void handleParameterAssert(const std::string& condition, const std::optional<std::string>& message,
                                       const char* function, const char* file, int line) = 0;

    /// A failed assertion, its message already formatted.
    virtual void handleAssert(const std::string& message) = 0;
};

VLMSDK_API_END
