#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// A bearer token and when the service stops accepting it.
struct VLMSDKAccessToken {
    /// The token itself; it goes on the wire only as the Authorization header, and into no log.
    std::string value;
    /// The default: never.
    std::chrono::system_clock::time_point expiresAt = std::chrono::system_clock::time_point::max();
};

/// Where bearer tokens come from (a host's sign-in service, a session store): what a host implements so that
/// tokens refresh themselves. A `VLMSDKCredentials` asks it, caches what it gives and asks again before the
/// token expires or after the service refused it.
class VLMSDKCredentialsProvider {
public:
    /// Exactly one of the two: a token (its value neither empty nor holding a space or control byte), or the
    /// error saying why there is none.
    using Completion = std::function<void(std::optional<VLMSDKAccessToken> token, VLMErrorPtr error)>;

    virtual ~VLMSDKCredentialsProvider() = default;

    /// Fetches a token and calls `completion` exactly once, on any thread. Called on a thread the
    /// credentials start for it, never the main thread, one fetch at a time; it may block there or return at
    /// once and complete later. A fetch that does not complete within the credentials' `fetchTimeout` fails
    /// the requests waiting for it; its late completion is ignored. It must not throw.
    virtual void fetchToken(Completion completion) = 0;
};

VLMSDK_API_END
