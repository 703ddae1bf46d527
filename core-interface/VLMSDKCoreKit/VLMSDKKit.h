#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <concepts>
#include <memory>

VLMSDK_API_BEGIN

class VLMSDKConfiguration;

/// \file
/// What makes a class a kit of the SDK.

/// What makes a class a kit of the SDK. An instance answers `start`; the class itself offers
/// `static void enableWithConfiguration(std::shared_ptr<const VLMSDKConfiguration>)` and
/// `static std::shared_ptr<...> sharedInstance()`, checked by the concept `VLMSDKKitClass`.
class VLMSDKKit : public VLMSDKRootObject {
public:
    /// Starts the kit's own work, if it has any. The SDK does not call it itself.
    virtual void start() = 0;
};

/// True for a kit class: derived from VLMSDKKit, with the static `enableWithConfiguration`,
/// `sharedInstance` and `classDescriptor`.
template <class T>
concept VLMSDKKitClass = std::derived_from<T, VLMSDKKit> &&
    requires(std::shared_ptr<const VLMSDKConfiguration> configuration) {
        T::enableWithConfiguration(configuration);
        { T::sharedInstance() } -> std::convertible_to<std::shared_ptr<VLMSDKRootObject>>;
        { T::classDescriptor() } -> std::same_as<const VLMSDKClass&>;
    };

VLMSDK_API_END
