#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>

#include <concepts>
#include <memory>

VLMSDK_API_BEGIN

/// \file
/// The concept of a class mapped from JSON.

/// A class that can be mapped from JSON offers `static std::shared_ptr<const VLMSDKObjectMapping>
/// objectMapping()` (built once, the same object on every call) and lists it in its descriptor's
/// operations; `serializationMapping()` is optional.
template <class T>
concept VLMSDKMapping = requires {
    { T::objectMapping() } -> std::convertible_to<std::shared_ptr<const VLMSDKObjectMapping>>;
};

VLMSDK_API_END
