#pragma once

#include <VLMSDKCoreKit/VLMSDKCredentialsProvider.h>

#include <chrono>
#include <string>

/// Tokens from the local service's admin API, each good for `lifetime`: the tool signs in with short-lived
/// tokens there, as a guest's app does with its own sign-in service, so its runs refresh them for real.
/// Asked on the credentials' fetch thread; each fetch is one blocking admin request.
class PMSSandboxCredentials final : public VLMSDKCredentialsProvider {
public:
    /// `serviceURL` is any URL of the local service; `mainToken` the one its admin API takes.
    PMSSandboxCredentials(std::string serviceURL, std::string mainToken, std::chrono::seconds lifetime);

    void fetchToken(Completion completion) override;

private:
    const std::string serviceURL_;
    const std::string mainToken_;
    const std::chrono::seconds lifetime_;
};
