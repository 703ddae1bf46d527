#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKConfiguration.h>
#include <VLMSDKCoreKit/VLMSDKKit.h>

#include <memory>

VLMSDK_API_BEGIN

/// \file
/// The kit's entry, VLMSDKPMS, and the kit's version.

/// The kit's version, as a number and as the "@(#)PROGRAM:..." identification text.
///@{
extern "C" const double VLMSDKPMSKitVersionNumber;
extern "C" const unsigned char VLMSDKPMSKitVersionString[];
///@}

/// The entry of the property-management kit, through which the SDK recognises it.
///
/// A host lists `VLMSDKPMS::classDescriptor()` in its configuration's `kits` and calls
/// `enableWithConfiguration` once. The reservation operations do not depend on it: they work whether or
/// not the kit was enabled.
class VLMSDKPMS : public VLMSDKKit {
public:
    VLMSDKPMS() = default;

    /// Creates the shared instance when `configuration` lists this class (by identity) in its `kits`;
    /// otherwise reports "Configuration must have VLMSDKPMSKit in kits array" to the assertion handler and
    /// creates nothing. An absent configuration counts as one with no kits. Callable from any thread.
    static void enableWithConfiguration(std::shared_ptr<const VLMSDKConfiguration> configuration);

    /// The shared instance, created on the first call (once, even under concurrent calls) whatever
    /// `configuration` is; the configuration is neither kept nor used.
    static std::shared_ptr<VLMSDKPMS> sharedInstanceWithConfiguration(
        std::shared_ptr<const VLMSDKConfiguration> configuration);

    /// The shared instance, or nullptr when it was never created. Never creates one.
    static std::shared_ptr<VLMSDKPMS> sharedInstance();

    /// Does nothing; may be called any number of times.
    void start() override;

    /// Always nullptr: the kit keeps no configuration.
    const std::shared_ptr<const VLMSDKConfiguration>& configuration() const { return configuration_; }

    /// This class's descriptor (see VLMSDKClass); the one a configuration lists to enable the kit.
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;

protected:
    /// Enabling as sent to `receiver`: looks for exactly that class in the kits. Lets a derived kit class
    /// look for itself rather than for VLMSDKPMS.
    static void enableClassWithConfiguration(const VLMSDKClass& receiver,
                                             const std::shared_ptr<const VLMSDKConfiguration>& configuration);

private:
    std::shared_ptr<const VLMSDKConfiguration> configuration_;
};

static_assert(VLMSDKKitClass<VLMSDKPMS>);

VLMSDK_API_END
