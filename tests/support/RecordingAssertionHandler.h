#pragma once

#include <VLMSDKCoreKit/VLMSDKAssertionHandler.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// Records every failed check it is told of.
class RecordingAssertionHandler final : public VLMSDKAssertionHandler {
public:
    struct Call {
        std::string text;  ///< the condition of a parameter assertion, or the assertion message
        bool isParameterAssert;
        std::string file;
    };

    /// Installs a new handler for all threads; `uninstall` restores the default.
    static std::shared_ptr<RecordingAssertionHandler> install();
    static void uninstall();

    void handleParameterAssert(const std::string& condition, const std::optional<std::string>& message,
                               const char* function, const char* file, int line) override;
    void handleAssert(const std::string& message) override;

    std::vector<Call> calls() const;

private:
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};
