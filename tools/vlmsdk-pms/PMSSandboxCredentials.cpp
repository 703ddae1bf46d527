#include "PMSSandboxCredentials.h"

#include <pmssandbox/SandboxClient.h>

#include <algorithm>
#include <utility>

PMSSandboxCredentials::PMSSandboxCredentials(std::string serviceURL, std::string mainToken,
                                             std::chrono::seconds lifetime)
    : serviceURL_(std::move(serviceURL)), mainToken_(std::move(mainToken)), lifetime_(lifetime) {}

void PMSSandboxCredentials::fetchToken(Completion completion) {
    // Measured from before the request: the token expires no later than the cache believes.
    const auto asked = std::chrono::system_clock::now();
    std::string why;
    pmssandbox::SandboxClient client(serviceURL_, mainToken_);
    const int seconds = static_cast<int>(std::clamp<long long>(lifetime_.count(), 1, 86400));
    if (auto issued = client.issueToken(seconds, &why)) {
        completion(VLMSDKAccessToken{std::move(issued->token), asked + issued->expiresIn}, nullptr);
        return;
    }
    completion(std::nullopt, VLMError::errorWithCode(VLMErrorCode::Authentication, "vlmsdk-pms",
                                                     "the local service issued no token: " + why, __func__, __FILE__));
}
