#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKRequestInfo.h>

#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

/// Items to charge to a reservation's master bill. The reservation goes into the request's path, the
/// items into its body.
class VLMSDKUpdateReservationMasterBillRequestInfo : public VLMSDKRequestInfo {
public:
    /// The items to charge, each an item identifier and a quantity.
    using Deliverables = std::vector<std::shared_ptr<VLMSDKDeliverableCountableItem>>;

    /// The reservation whose master bill is charged; it goes into the path, not the body.
    ///@{
    const std::optional<std::string>& reservationID() const { return reservationID_; }
    void setReservationID(std::optional<std::string> value) { reservationID_ = std::move(value); }
    ///@}
    /// The items to charge, written into the body in this order.
    ///@{
    const Deliverables& velmoraDeliverables() const { return velmoraDeliverables_; }
    void setVelmoraDeliverables(Deliverables value) { velmoraDeliverables_ = std::move(value); }
    ///@}

    /// {"deliverable_items": [...]}, one object per item in order, written by the item's serialization mapping.
    VLMSDKJSON JSONRepresentation() const override;

    /// Tests, in this order: reservationID non-empty, at least one item, every quantity given a finite number
    /// (NaN and infinity cannot be written as JSON). The error names the property that fails.
    bool isValid(VLMErrorPtr* error) const override;

private:
    std::optional<std::string> reservationID_;
    Deliverables velmoraDeliverables_;
};

VLMSDK_API_END
