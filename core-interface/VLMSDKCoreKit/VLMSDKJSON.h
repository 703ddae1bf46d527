#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <nlohmann/json.hpp>

#include <cstddef>

VLMSDK_API_BEGIN

/// \file
/// The SDK's JSON value type and the nesting it accepts.

/// The JSON value type of the SDK: reply bodies, request bodies, untyped replies.
using VLMSDKJSON = nlohmann::json;

/// The deepest nesting of arrays and objects the SDK reads or writes. A reply nested deeper is refused
/// (VLMErrorCode::InvalidResponse) and a request body nested deeper is not sent (InvalidRequest), so that
/// no value, however hostile, is walked or copied deeper than this.
inline constexpr std::size_t kVLMSDKMaximumJSONDepth = 256;

VLMSDK_API_END
