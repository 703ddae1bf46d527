#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

class VLMSDKClass;
class VLMSDKObjectMapping;

/// One posting (deliverable item) on a folio. A new item has `currency` kVLMSDKDefaultCurrencyCode and
/// the other properties absent.
class VLMSDKFolioDeliverableItem : public VLMSDKRootObject {
public:
    VLMSDKFolioDeliverableItem();

    /// The posting's name, as the hotel's system shows it.
    ///@{
    const std::optional<std::string>& name() const { return name_; }
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    ///@}
    /// The posting's code in the hotel's system.
    ///@{
    const std::optional<std::string>& code() const { return code_; }
    void setCode(std::optional<std::string> code) { code_ = std::move(code); }
    ///@}
    /// Currency code of the price.
    ///@{
    const std::optional<std::string>& currency() const { return currency_; }
    void setCurrency(std::optional<std::string> currency) { currency_ = std::move(currency); }
    ///@}
    /// The posting's amount; negative for a credit.
    ///@{
    const std::optional<double>& price() const { return price_; }
    void setPrice(std::optional<double> price) { price_ = price; }
    ///@}

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;

    /// "VLMSDKFolioDeliverableItem 0x...; name ...; code ...; currency ...; price ...".
    std::string description() const override;

    /// How a posting object of a folio reply becomes an item; built once, the same object on every call.
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping();

private:
    std::optional<std::string> name_;
    std::optional<std::string> code_;
    std::optional<std::string> currency_;
    std::optional<double> price_;
};

VLMSDK_API_END
