#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKAssertionHandler.h>

#include <memory>
#include <optional>
#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>
#include <string>

VLMSDK_API_BEGIN

/// The SDK's assertion entry points. They forward to the installed handler and always return; the
/// default handler writes one console log line (level Error).
class VLMSDKAsserts {
public:
    /// Reports a failed argument check.
    static void handleParameterAssert(const std::string& condition, const std::optional<std::string>& withMessage,
                                      VLMSDKSourceLocation location = VLMSDKSourceLocation::current());

    /// Reports a failed assertion with a printf-style message.
    static void handleAssertWithMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

    /// Installs `handler` for all threads (nullptr restores the default). Safe while others assert.
    static void setHandler(std::shared_ptr<VLMSDKAssertionHandler> handler);
    /// The handler in use: the installed one, or the default.
    static std::shared_ptr<VLMSDKAssertionHandler> handler();
};

VLMSDK_API_END
