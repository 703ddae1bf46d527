#pragma once

/// The currency assumed when a reply names none.
inline constexpr const char* kVLMSDKDefaultCurrencyCode = "USD";
