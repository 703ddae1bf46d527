#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <VLMSDKCoreKit/Archiving/VLMSDKCoder.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>

const VLMSDKClass& VLMSDKReservationGuest::classDescriptor() {
    using T = VLMSDKReservationGuest;
    static const VLMSDKClass descriptor(
        "VLMSDKReservationGuest", nullptr, [] { return std::make_shared<T>(); },
        {
            VLMSDKProperty::string<T>("firstName", &T::firstName, &T::setFirstName),
            VLMSDKProperty::string<T>("lastName", &T::lastName, &T::setLastName),
            VLMSDKProperty::string<T>("profileCode", &T::profileCode, &T::setProfileCode),
        },
        VLMSDKClass::Operations::mappedAndCoded<T>());
    return descriptor;
}

const VLMSDKClass& VLMSDKReservationGuest::objectClass() const { return classDescriptor(); }

std::string VLMSDKReservationGuest::description() const {
    using D = VLMSDKDescription;
    return "VLMSDKReservationGuest " + D::pointer(this) + "; firstName " + D::string(firstName_) +
           "; lastName " + D::string(lastName_) + "; profileCode " + D::string(profileCode_);
}

const std::vector<std::string>& VLMSDKReservationGuest::encodingProperties() {
    static const std::vector<std::string> names{"firstName", "lastName", "profileCode"};
    return names;
}

void VLMSDKReservationGuest::encodeWithCoder(VLMSDKKeyedArchiver& coder) const {
    VLMSDKCoder::encodeObject(*this, coder);
}

std::shared_ptr<VLMSDKReservationGuest> VLMSDKReservationGuest::initWithCoder(VLMSDKKeyedUnarchiver& coder) {
    return std::dynamic_pointer_cast<VLMSDKReservationGuest>(VLMSDKCoder::objectOfClass(classDescriptor(), coder));
}

std::vector<std::uint8_t> VLMSDKReservationGuest::archivedData(VLMErrorPtr* error) const {
    return VLMSDKCoder::archivedDataWithRootObject(*this, error);
}

std::shared_ptr<VLMSDKReservationGuest> VLMSDKReservationGuest::unarchivedFromData(std::span<const std::uint8_t> data,
                                                                                   VLMErrorPtr* error) {
    return VLMSDKCoder::unarchivedObjectOfClass<VLMSDKReservationGuest>(data, error);
}
