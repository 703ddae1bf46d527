#include <VLMSDKCoreKit/VLMSDKAsserts.h>
#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace {

// Logs one console line per failed check, then returns.
class VLMSDKLoggingAssertionHandler final : public VLMSDKAssertionHandler {
public:
    void handleParameterAssert(const std::string& condition, const std::optional<std::string>& message,
                               const char* function, const char* file, int line) override {
        VLMSDKConsoleLogger::sharedLogger().logWithLevel(
            static_cast<int>(VLMSDKLogLevel::Error), file, line, function, "Invalid parameter not satisfying: %s%s%s",
            condition.c_str(), message ? " " : "", message ? message->c_str() : "");
    }

    void handleAssert(const std::string& message) override {
        VLMSDKConsoleLogger::sharedLogger().logWithLevel(static_cast<int>(VLMSDKLogLevel::Error), __FILE__, __LINE__,
                                                         __func__, "Assertion failure: %s", message.c_str());
    }
};

struct HandlerSlot {
    std::mutex mutex;
    std::shared_ptr<VLMSDKAssertionHandler> installed;
};

HandlerSlot& slot() {
    static HandlerSlot* instance = new HandlerSlot;
    return *instance;
}

std::shared_ptr<VLMSDKAssertionHandler> defaultHandler() {
    static const auto handler = std::make_shared<VLMSDKLoggingAssertionHandler>();
    return handler;
}

}  // namespace

void VLMSDKAsserts::setHandler(std::shared_ptr<VLMSDKAssertionHandler> handler) {
    HandlerSlot& s = slot();
    std::lock_guard lock(s.mutex);
    s.installed = std::move(handler);
}

std::shared_ptr<VLMSDKAssertionHandler> VLMSDKAsserts::handler() {
    HandlerSlot& s = slot();
    std::lock_guard lock(s.mutex);
    return s.installed ? s.installed : defaultHandler();
}

void VLMSDKAsserts::handleParameterAssert(const std::string& condition, const std::optional<std::string>& withMessage,
                                          VLMSDKSourceLocation location) {
    handler()->handleParameterAssert(condition, withMessage, location.function, location.file, location.line);
}

void VLMSDKAsserts::handleAssertWithMessage(const char* format, ...) {
    std::string message;
    if (format) {
        va_list arguments;
        va_start(arguments, format);
        va_list copy;
        va_copy(copy, arguments);
        const int length = std::vsnprintf(nullptr, 0, format, copy);
        va_end(copy);
        if (length > 0) {
            std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
            std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
            message.assign(buffer.data(), static_cast<std::size_t>(length));
        }
        va_end(arguments);
    }
    handler()->handleAssert(message);
}
