#pragma once

#include "PMSSettings.h"

#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

#include <memory>
#include <string>

namespace pmssandbox {
class SandboxServer;
}
class VLMSDKHTTPRequestManager;

/// The service the tool talks to and the API manager that reaches it: the service given by URL, else the
/// background local service when one runs (vlmsdk-pms sandbox start), else the local reservation service
/// started in this process on an ephemeral port of 127.0.0.1.
class PMSServiceConnection {
public:
    /// Enables the kit, starts the local service when `settings` names no base URL, and sets up the
    /// API manager with the real HTTP transport. nullptr, with the reason in `error`, when the local
    /// service cannot start.
    static std::unique_ptr<PMSServiceConnection> open(const PMSSettings& settings, std::string* error);

    /// Stops and drops the transport (no reply handler runs afterwards), then stops the local service.
    ~PMSServiceConnection();

    PMSServiceConnection(const PMSServiceConnection&) = delete;
    PMSServiceConnection& operator=(const PMSServiceConnection&) = delete;

    const VLMSDKAPIManager& apiManager() const { return *apiManager_; }
    const std::string& baseURL() const { return baseURL_; }
    /// True when the service is the local one started by the tool.
    bool isEmbedded() const { return sandbox_ != nullptr; }
    /// What the user should know about the choice of service (the in-process fallback); empty if nothing.
    const std::string& notice() const { return notice_; }

private:
    PMSServiceConnection() = default;

    std::unique_ptr<pmssandbox::SandboxServer> sandbox_;
    std::shared_ptr<VLMSDKHTTPRequestManager> requestManager_;
    std::unique_ptr<VLMSDKAPIManager> apiManager_;
    std::string baseURL_;
    std::string notice_;
};
