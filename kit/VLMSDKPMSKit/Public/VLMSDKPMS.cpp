#include <VLMSDKPMSKit/Public/VLMSDKPMS.h>

#include <VLMSDKCoreKit/VLMSDKAsserts.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <atomic>
#include <mutex>

extern "C" const double VLMSDKPMSKitVersionNumber = 1.0;
extern "C" const unsigned char VLMSDKPMSKitVersionString[] =
    "@(#)PROGRAM:VLMSDKPMSKit  PROJECT:VLMSDKPMSKit-1\n";

namespace {

// Written once under the once-flag and never cleared; the release/acquire pair lets `sharedInstance`
// read it without a lock. The holder lives until the process ends.
std::atomic<const std::shared_ptr<VLMSDKPMS>*> sharedInstanceSlot{nullptr};
std::once_flag onceToken;

}  // namespace

const VLMSDKClass& VLMSDKPMS::classDescriptor() {
    static const VLMSDKClass descriptor("VLMSDKPMS", nullptr, [] { return std::make_shared<VLMSDKPMS>(); }, {});
    return descriptor;
}

const VLMSDKClass& VLMSDKPMS::objectClass() const { return classDescriptor(); }

void VLMSDKPMS::enableWithConfiguration(std::shared_ptr<const VLMSDKConfiguration> configuration) {
    enableClassWithConfiguration(classDescriptor(), configuration);
}

void VLMSDKPMS::enableClassWithConfiguration(const VLMSDKClass& receiver,
                                             const std::shared_ptr<const VLMSDKConfiguration>& configuration) {
    // A copy of the array: nothing the host does to the configuration can disturb this walk.
    const VLMSDKConfiguration::Kits kits = configuration ? configuration->kits() : VLMSDKConfiguration::Kits{};
    std::shared_ptr<const VLMSDKConfigurationKit> matched;
    for (const auto& entry : kits) {
        if (entry && entry->kit() == &receiver) matched = entry;
    }
    if (matched) {
        sharedInstanceWithConfiguration(configuration);
        return;
    }
    VLMSDKAsserts::handleAssertWithMessage("Configuration must have VLMSDKPMSKit in kits array");
}

std::shared_ptr<VLMSDKPMS> VLMSDKPMS::sharedInstanceWithConfiguration(std::shared_ptr<const VLMSDKConfiguration>) {
    std::call_once(onceToken, [] {
        sharedInstanceSlot.store(new std::shared_ptr<VLMSDKPMS>(std::make_shared<VLMSDKPMS>()),
                                 std::memory_order_release);
    });
    return *sharedInstanceSlot.load(std::memory_order_acquire);
}

std::shared_ptr<VLMSDKPMS> VLMSDKPMS::sharedInstance() {
    const auto* instance = sharedInstanceSlot.load(std::memory_order_acquire);
    return instance ? *instance : nullptr;
}

void VLMSDKPMS::start() {}
