#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

class VLMSDKClass;

/// One entry of a configuration's `kits`: the class of a kit the host enables.
class VLMSDKConfigurationKit {
public:
    explicit VLMSDKConfigurationKit(const VLMSDKClass& kit) : kit_(&kit) {}

    /// The kit's class; compare by address.
    const VLMSDKClass* kit() const { return kit_; }

private:
    const VLMSDKClass* kit_;
};

/// The SDK configuration a host builds at start-up: the kits it enables, and the service the core kit
/// talks to (the kits themselves never read the service settings).
class VLMSDKConfiguration {
public:
    using Kits = std::vector<std::shared_ptr<const VLMSDKConfigurationKit>>;

    /// The enabled kits, in order; absent entries are allowed and match nothing. A copy: changing the
    /// configuration afterwards never disturbs a walk over it.
    Kits kits() const { return kits_; }
    void setKits(Kits kits) { kits_ = std::move(kits); }

    /// The reservation service's base URL (http or https), and the bearer token sent to it.
    const std::optional<std::string>& serviceBaseURL() const { return serviceBaseURL_; }
    void setServiceBaseURL(std::optional<std::string> url) { serviceBaseURL_ = std::move(url); }
    const std::optional<std::string>& accessToken() const { return accessToken_; }
    void setAccessToken(std::optional<std::string> token) { accessToken_ = std::move(token); }

private:
    Kits kits_;
    std::optional<std::string> serviceBaseURL_;
    std::optional<std::string> accessToken_;
};
