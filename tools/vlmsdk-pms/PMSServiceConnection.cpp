#include "PMSServiceConnection.h"

#include "PMSBackgroundSandbox.h"
#include "PMSSandboxCredentials.h"
#include "PMSServiceURL.h"

#include <VLMSDKCoreKit/VLMSDKConfiguration.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKPMSKit/Public/VLMSDKPMS.h>

#include <pmssandbox/SandboxClient.h>
#include <pmssandbox/SandboxServer.h>

#include <algorithm>

namespace {

void enableKit() {
    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);
}

}  // namespace

std::unique_ptr<PMSServiceConnection> PMSServiceConnection::open(const PMSSettings& settings,
                                                                 VLMSDKHTTPExchangeObserver observer,
                                                                 std::string* error, bool startEmbedded) {
    std::unique_ptr<PMSServiceConnection> connection(new PMSServiceConnection());
    std::optional<std::string> token = settings.token;
    if (settings.baseURL) {
        connection->baseURL_ = *settings.baseURL;
    } else if (auto background = PMSBackgroundSandbox().running()) {
        connection->service_ = Service::Background;
        connection->baseURL_ = background->url;
        if (!token) token = background->token;
    } else if (!startEmbedded) {
        if (error) {
            *error = "no service to send to: no --base-url (or VLMSDK_PMS_BASE_URL) was given and no background "
                     "pms-sandbox is running (start one with: vlmsdk-pms sandbox start)";
        }
        return nullptr;
    } else {
        connection->service_ = Service::Embedded;
        connection->notice_ = "no background pms-sandbox is running, so this command has one of its own, whose "
                              "changes end with it (keep one running with: vlmsdk-pms sandbox start)";
        pmssandbox::SandboxConfig config;
        connection->sandbox_ = std::make_unique<pmssandbox::SandboxServer>(config);
        if (!connection->sandbox_->start()) {
            if (error) *error = "the local reservation service did not start: " + connection->sandbox_->lastError();
            return nullptr;
        }
        connection->baseURL_ = connection->sandbox_->baseUrl();
        // An explicit --token is still sent as given, so a wrong one can be tried against the local service.
        if (!token) token = config.token;
    }
    const auto url = PMSServiceURL::parse(connection->baseURL_);
    connection->shownURL_ = url ? url->shown() : connection->baseURL_;
    connection->token_ = token.value_or("");

    enableKit();

    auto builder = std::make_shared<VLMSDKRequestBuilder>(connection->baseURL_);
    if (connection->service_ != Service::Given && !settings.token) {
        // The local service's main token only opens its admin API here: requests carry short-lived tokens
        // it issues, refreshed as they expire.
        builder->setCredentialsProvider(
            std::make_shared<PMSSandboxCredentials>(connection->baseURL_, connection->token_, settings.tokenLifetime));
    } else {
        builder->setAccessToken(token);
    }
    VLMSDKHTTPRequestManagerOptions options;
    options.requestTimeout = settings.timeout;
    options.caFile = settings.caFile;
    options.transport = settings.transport;
    options.connectTimeout = std::min<std::chrono::milliseconds>(settings.timeout, std::chrono::seconds(10));
    options.exchangeObserver = std::move(observer);
    options.retry.maximumAttempts = settings.retries + 1;
    // The local service honours keys; a service given by URL gets them only when asked for.
    options.retry.idempotencyKeys = settings.idempotencyKeys.value_or(connection->service_ != Service::Given);
    connection->requestManager_ = std::make_shared<VLMSDKHTTPRequestManager>(options);
    connection->apiManager_ = std::make_unique<VLMSDKAPIManager>(builder, connection->requestManager_);
    return connection;
}

PMSServiceConnection::~PMSServiceConnection() {
    if (requestManager_) requestManager_->shutdown();
    // Dropping the transport closes its idle keep-alive connections; the local service would otherwise
    // wait out its keep-alive time before it can stop.
    apiManager_.reset();
    requestManager_.reset();
    if (sandbox_) sandbox_->stop();
}

bool PMSServiceConnection::resetBookings(std::string* error) const {
    if (service_ == Service::Embedded) {
        sandbox_->resetData();
        return true;
    }
    if (service_ == Service::Given) {
        if (error) *error = "the tool resets only the local service it runs itself";
        return false;
    }
    pmssandbox::SandboxClient client(baseURL_, token_);
    const auto reply = client.send("POST", "/_sandbox/reset");
    if (reply.status == 200) return true;
    if (error) *error = reply.status == 0 ? reply.error : "HTTP " + std::to_string(reply.status);
    return false;
}
