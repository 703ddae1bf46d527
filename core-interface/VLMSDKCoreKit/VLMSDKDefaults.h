#pragma once

/// \file
/// Defaults the records share.

/// The currency assumed when a reply names none.
inline constexpr const char* kVLMSDKDefaultCurrencyCode = "USD";
