#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <functional>
#include <string>

VLMSDK_API_BEGIN

/// Says whether a request's JSON body is the one a test expects, and how, for failure messages.
///
/// The predicate sees the body parsed as JSON, or a null value for a request without a body; a body that is
/// not JSON matches no matcher. It runs on the thread that hands the request to the scripted request manager,
/// under that manager's lock: it must not call the manager, nor touch unguarded state. One that throws counts
/// as not matching.
struct VLMSDKBodyMatcher {
    /// What the matcher wants, as the failure messages show it: "equal to {...}".
    std::string description{};
    /// True for a body that matches.
    std::function<bool(const VLMSDKJSON& body)> predicate{};

    /// A body equal to `expected` (JSON equality: members in any order, 1 and 1.0 equal).
    static VLMSDKBodyMatcher equalTo(VLMSDKJSON expected);
    /// An object body holding each member of the object `members` with an equal value, and maybe others.
    static VLMSDKBodyMatcher including(VLMSDKJSON members);
};

VLMSDK_API_END
