#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

class VLMSDKClass;
class VLMSDKObjectMapping;

/// The folio (master bill) of a reservation: its identifier, the amount outstanding, the payment currency
/// and its postings. A new folio has every property absent, the currency included.
class VLMSDKFolio : public VLMSDKRootObject {
public:
    VLMSDKFolio() = default;

    /// The folio's identifier in the hotel's system.
    ///@{
    const std::optional<std::string>& folioID() const { return folioID_; }
    void setFolioID(std::optional<std::string> folioID) { folioID_ = std::move(folioID); }
    ///@}
    /// Amount still open on the folio.
    ///@{
    const std::optional<double>& outstandingAmount() const { return outstandingAmount_; }
    void setOutstandingAmount(std::optional<double> amount) { outstandingAmount_ = amount; }
    ///@}
    /// Currency code of the folio.
    ///@{
    const std::optional<std::string>& paymentCurrency() const { return paymentCurrency_; }
    void setPaymentCurrency(std::optional<std::string> currency) { paymentCurrency_ = std::move(currency); }
    ///@}
    /// The postings, in reply order.
    ///@{
    const std::vector<std::shared_ptr<VLMSDKFolioDeliverableItem>>& deliverables() const { return deliverables_; }
    void setDeliverables(std::vector<std::shared_ptr<VLMSDKFolioDeliverableItem>> deliverables) {
        deliverables_ = std::move(deliverables);
    }
    ///@}

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;

    /// "VLMSDKFolio 0x...; folioID ...; outstandingAmount ...; paymentCurrency ..." (postings not printed).
    std::string description() const override;

    /// How a folio reply becomes a folio; built once, the same object on every call.
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping();

private:
    std::optional<std::string> folioID_;
    std::optional<double> outstandingAmount_;
    std::optional<std::string> paymentCurrency_;
    std::vector<std::shared_ptr<VLMSDKFolioDeliverableItem>> deliverables_;
};

VLMSDK_API_END
