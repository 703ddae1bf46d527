#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

VLMSDK_API_BEGIN

/// \file
/// Defaults the records share.

/// The currency assumed when a reply names none.
inline constexpr const char* kVLMSDKDefaultCurrencyCode = "USD";

VLMSDK_API_END
