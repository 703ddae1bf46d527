#pragma once

#include "PMSSettings.h"

#include <VLMSDKCoreKit/VLMSDKAPIManager.h>
#include <VLMSDKCoreKit/VLMSDKHTTPExchange.h>

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
    enum class Service {
        Given,       ///< named by --base-url
        Background,  ///< the background pms-sandbox
        Embedded,    ///< started in this process, for this command only
    };

    /// Enables the kit, starts the local service when `settings` names no base URL, and sets up the
    /// API manager with the real HTTP transport, which tells `observer` of every exchange. nullptr, with the
    /// reason in `error`, when the local service cannot start, or when none runs and `startEmbedded` is false
    /// (work that must outlive the command goes to no service that ends with it).
    static std::unique_ptr<PMSServiceConnection> open(const PMSSettings& settings,
                                                      VLMSDKHTTPExchangeObserver observer, std::string* error,
                                                      bool startEmbedded = true);

    /// Stops and drops the transport (no reply handler runs afterwards), then stops the local service.
    ~PMSServiceConnection();

    PMSServiceConnection(const PMSServiceConnection&) = delete;
    PMSServiceConnection& operator=(const PMSServiceConnection&) = delete;

    const VLMSDKAPIManager& apiManager() const { return *apiManager_; }
    /// The service's base URL as it may be shown: a password in it reads "***".
    const std::string& shownURL() const { return shownURL_; }
    Service service() const { return service_; }
    /// What the user should know about the choice of service (the in-process fallback); empty if nothing.
    const std::string& notice() const { return notice_; }

    /// Puts every booking of a local service back as seeded, through its admin API. False, with the reason
    /// in `error`, for a service given by URL (never reset by the tool) or when the reset fails.
    bool resetBookings(std::string* error) const;

private:
    PMSServiceConnection() = default;

    std::unique_ptr<pmssandbox::SandboxServer> sandbox_;
    std::shared_ptr<VLMSDKHTTPRequestManager> requestManager_;
    std::unique_ptr<VLMSDKAPIManager> apiManager_;
    Service service_ = Service::Given;
    std::string baseURL_;
    std::string shownURL_;
    std::string token_;
    std::string notice_;
};
