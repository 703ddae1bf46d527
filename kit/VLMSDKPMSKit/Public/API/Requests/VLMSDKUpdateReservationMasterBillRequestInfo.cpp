#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKUpdateReservationMasterBillRequestInfo.h>

#include <Velmora_Meta/VLMUtilities.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKSerializer.h>

#include <cmath>

VLMSDKJSON VLMSDKUpdateReservationMasterBillRequestInfo::JSONRepresentation() const {
    VLMSDKJSON body = VLMSDKJSON::object();
    const auto mapping = VLMSDKDeliverableCountableItem::serializationMapping();
    VLMUtilities::dictionary(body, std::optional<VLMSDKJSON>(VLMSDKSerializer::serializeCollection(velmoraDeliverables_, mapping)),
                             "deliverable_items");
    return body;
}

bool VLMSDKUpdateReservationMasterBillRequestInfo::isValid(VLMErrorPtr* error) const {
    const char* failed = !reservationID_ || reservationID_->empty() ? "reservationID"
                         : velmoraDeliverables_.empty()             ? "velmoraDeliverables"
                                                                    : nullptr;
    std::optional<std::string> why;
    for (std::size_t index = 0; !failed && index < velmoraDeliverables_.size(); ++index) {
        const auto& item = velmoraDeliverables_[index];
        if (item && item->count() && !std::isfinite(*item->count())) {
            failed = "velmoraDeliverables";
            why = "the quantity of item " + std::to_string(index) + " is not a finite number";
        }
    }
    if (!failed) return true;
    VLMUtilities::error(error, VLMError::requiredArgumentErrorWithName(failed, why, __func__, __FILE__));
    return false;
}
