#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKCreateReservationRequestInfo.h>

#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>

#include <Velmora_Meta/VLMUtilities.h>

namespace {

std::size_t hashOf(const std::optional<std::string>& text) { return text ? std::hash<std::string>{}(*text) : 0; }

}  // namespace

VLMSDKJSON VLMSDKCreateReservationRequestInfo::JSONRepresentation() const {
    VLMSDKJSON body = VLMSDKJSON::object();
    VLMUtilities::dictionary(body, reservationistLastName_, VLMSDKReservationJSONKeyes.lastName);
    VLMUtilities::dictionary(body, externalReservationID_, VLMSDKReservationJSONKeyes.confirmationID);
    VLMUtilities::dictionary(body, venueVelmoraID_, VLMSDKReservationJSONKeyes.venueID);
    return body;
}

bool VLMSDKCreateReservationRequestInfo::isValid(VLMErrorPtr* error) const {
    const char* missing = !reservationistLastName_ ? "reservationistLastName"
                          : !venueVelmoraID_       ? "venueVelmoraID"
                          : !externalReservationID_ ? "externalReservationID"
                                                    : nullptr;
    if (!missing) return true;
    VLMUtilities::error(error, VLMError::requiredArgumentErrorWithName(missing, std::nullopt, __func__, __FILE__));
    return false;
}

bool VLMSDKCreateReservationRequestInfo::isEqual(const VLMSDKRequestInfo* object) const {
    const auto* other = dynamic_cast<const VLMSDKCreateReservationRequestInfo*>(object);
    if (!other) return false;
    return VLMUtilities::string(venueVelmoraID_, other->venueVelmoraID_) &&
           VLMUtilities::string(reservationistLastName_, other->reservationistLastName_) &&
           VLMUtilities::string(externalReservationID_, other->externalReservationID_);
}

std::size_t VLMSDKCreateReservationRequestInfo::hash() const {
    return hashOf(venueVelmoraID_) + hashOf(reservationistLastName_) + hashOf(externalReservationID_);
}
