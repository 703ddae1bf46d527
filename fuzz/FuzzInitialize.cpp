// Every harness starts quiet: the validator's failure lines would cost more than the work under test.
#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRemoteLogger.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(0);
    VLMSDKRemoteLogger::sharedLogger().setMaximumLevel(0);
    return 0;
}
