#pragma once

#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <concepts>
#include <memory>

class VLMSDKConfiguration;

/// What makes a class a kit of the SDK. An instance answers `start`; the class itself offers
/// `static void enableWithConfiguration(std::shared_ptr<const VLMSDKConfiguration>)` and
/// `static std::shared_ptr<...> sharedInstance()`, checked by the concept `VLMSDKKitClass`.
class VLMSDKKit : public VLMSDKRootObject {
public:
    virtual void start() = 0;
};

template <class T>
concept VLMSDKKitClass = std::derived_from<T, VLMSDKKit> &&
    requires(std::shared_ptr<const VLMSDKConfiguration> configuration) {
        T::enableWithConfiguration(configuration);
        { T::sharedInstance() } -> std::convertible_to<std::shared_ptr<VLMSDKRootObject>>;
        { T::classDescriptor() } -> std::same_as<const VLMSDKClass&>;
    };
