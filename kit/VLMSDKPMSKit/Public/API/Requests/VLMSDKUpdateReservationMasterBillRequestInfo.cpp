#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKUpdateReservationMasterBillRequestInfo.h>

#include <Velmora_Meta/VLMUtilities.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKSerializer.h>

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
    if (!failed) return true;
    VLMUtilities::error(error, VLMError::requiredArgumentErrorWithName(failed, std::nullopt, __func__, __FILE__));
    return false;
}
