#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <optional>
#include <string>
#include <string_view>

VLMSDK_API_BEGIN

/// Small nil-safe helpers shared by the SDK's libraries.
class VLMUtilities {
public:
    /// Stores `setError` through `error` when the caller gave an out-parameter; does nothing otherwise.
    static void error(VLMErrorPtr* error, VLMErrorPtr setError);

    /// Puts `setObject` under `forKey` in the JSON object `dictionary`; an absent value leaves the key out.
    /// A number that is not finite is put as it is (the request builder then refuses to send it).
    /// A `dictionary` that is not an object (null included) becomes an empty object first.
    ///@{
    static void dictionary(VLMSDKJSON& dictionary, const std::optional<std::string>& setObject, std::string_view forKey);
    static void dictionary(VLMSDKJSON& dictionary, const std::optional<double>& setObject, std::string_view forKey);
    static void dictionary(VLMSDKJSON& dictionary, const std::optional<VLMSDKJSON>& setObject, std::string_view forKey);
    ///@}

    /// String equality that accepts absent strings: two absent strings are equal, absent and present are not.
    static bool string(const std::optional<std::string>& string, const std::optional<std::string>& isEqualToString);
};

VLMSDK_API_END
