#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <functional>
#include <variant>

VLMSDK_API_BEGIN

/// \file
/// Value transforms: what a mapping entry may pass a JSON value through before it is stored.

/// What a value transform gives back: a JSON value for the mapper to store as it stores plain values
/// (null: leave the property absent), a date or time, or an error that fails the mapping.
using VLMSDKMappedValue = std::variant<VLMSDKJSON, VLMSDKDate, VLMSDKTime, VLMErrorPtr>;

/// A stateless value transform: one JSON value in, the value to store out. Must be callable from any
/// thread, and from several at once.
using VLMSDKAttributeMappingBlock = std::function<VLMSDKMappedValue(const VLMSDKJSON& value)>;

VLMSDK_API_END
