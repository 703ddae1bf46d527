#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <memory>
#include <vector>

VLMSDK_API_BEGIN

class VLMSDKClass;

/// One entry of a configuration's `kits`: the class of a kit the host enables.
class VLMSDKConfigurationKit {
public:
    /// The entry for the kit whose descriptor is `kit` (its `classDescriptor()`).
    explicit VLMSDKConfigurationKit(const VLMSDKClass& kit) : kit_(&kit) {}

    /// The kit's class; compare by address.
    const VLMSDKClass* kit() const { return kit_; }

private:
    const VLMSDKClass* kit_;
};

/// The SDK configuration a host builds at start-up: the kits it enables. The service's address, its
/// credentials and headers belong to the request builder (`VLMSDKRequestBuilder`) the host hands to each
/// API manager.
class VLMSDKConfiguration {
public:
    /// The list of enabled kits.
    using Kits = std::vector<std::shared_ptr<const VLMSDKConfigurationKit>>;

    /// The enabled kits, in order; absent entries are allowed and match nothing. A copy: changing the
    /// configuration afterwards never disturbs a walk over it.
    Kits kits() const { return kits_; }
    /// Replaces the list of enabled kits.
    void setKits(Kits kits) { kits_ = std::move(kits); }

private:
    Kits kits_;
};

VLMSDK_API_END
