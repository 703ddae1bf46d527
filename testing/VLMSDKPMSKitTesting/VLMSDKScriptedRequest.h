#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKitTesting/VLMSDKBodyMatcher.h>

#include <VLMSDKCoreKit/VLMSDKRequest.h>

#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// One request a test expects, in the order the scripted request manager expects them.
///
/// The route is the request's path relative to the request builder's base URL, as the operation asked for
/// it ("guest/reservations/rsv_1/folio"): never the base URL, and never a query string (the kit's operations
/// send none; a GET's parameters are left out of the route).
struct VLMSDKScriptedRequest {
    /// "GET", "POST", "PATCH": compared exactly.
    std::string method{};
    /// The path relative to the base URL, without a query string: compared exactly.
    std::string route{};
    /// What the JSON body must be; absent: any body, or none.
    std::optional<VLMSDKBodyMatcher> body{};

    /// "POST guest/reservations/rsv_1/transactions, body equal to {...}": the form failure messages use.
    std::string description() const;

    /// Whether `request` is this one; when not, `why` (if given) says what differs.
    bool matches(const VLMSDKRequest& request, std::string* why = nullptr) const;
};

VLMSDK_API_END
