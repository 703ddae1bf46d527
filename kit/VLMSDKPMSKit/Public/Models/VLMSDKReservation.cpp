#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <VLMSDKCoreKit/Archiving/VLMSDKCoder.h>
#include <VLMSDKCoreKit/VLMSDKDefaults.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>

VLMSDKReservation::VLMSDKReservation() : priceCurrencyCode_(kVLMSDKDefaultCurrencyCode) {}

VLMSDKReservationStatus VLMSDKReservation::status() const {
    // Each comparison reads the property afresh, so the result always follows the current word.
    if (statusStringRepresentation() == "reserved") return VLMSDKReservationStatusReserved;
    if (statusStringRepresentation() == "in_house") return VLMSDKReservationStatusInHouse;
    if (statusStringRepresentation() == "checked_out") return VLMSDKReservationStatusCheckedOut;
    return VLMSDKReservationStatusUnknown;
}

const VLMSDKClass& VLMSDKReservation::classDescriptor() {
    using T = VLMSDKReservation;
    static const VLMSDKClass descriptor(
        "VLMSDKReservation", &VLMSDKObject::classDescriptor(), [] { return std::make_shared<T>(); },
        {
            VLMSDKProperty::string<T>("statusStringRepresentation", &T::statusStringRepresentation,
                                      &T::setStatusStringRepresentation),
            VLMSDKProperty::string<T>("checkinVelmoraID", &T::checkinVelmoraID, &T::setCheckinVelmoraID),
            VLMSDKProperty::string<T>("guestVelmoraID", &T::guestVelmoraID, &T::setGuestVelmoraID),
            VLMSDKProperty::string<T>("venueVelmoraID", &T::venueVelmoraID, &T::setVenueVelmoraID),
            VLMSDKProperty::string<T>("externalReservationID", &T::externalReservationID,
                                      &T::setExternalReservationID),
            VLMSDKProperty::string<T>("internalReservationID", &T::internalReservationID,
                                      &T::setInternalReservationID),
            VLMSDKProperty::string<T>("clientSideID", &T::clientSideID, &T::setClientSideID),
            VLMSDKProperty::string<T>("priceCurrencyCode", &T::priceCurrencyCode, &T::setPriceCurrencyCode),
            VLMSDKProperty::date<T>("checkinDate", &T::checkinDate, &T::setCheckinDate),
            VLMSDKProperty::date<T>("checkoutDate", &T::checkoutDate, &T::setCheckoutDate),
            VLMSDKProperty::number<T>("totalStayPriceAmount", &T::totalStayPriceAmount, &T::setTotalStayPriceAmount),
            VLMSDKProperty::string<T>("roomNumber", &T::roomNumber, &T::setRoomNumber),
            VLMSDKProperty::objectArray<T, VLMSDKReservationGuest>("guests", &T::guests, &T::setGuests),
            VLMSDKProperty::number<T>("notSyncedPaidPriceAmount", &T::notSyncedPaidPriceAmount,
                                      &T::setNotSyncedPaidPriceAmount),
            VLMSDKProperty::boolean<T>("mobileCheckinOpen", &T::isMobileCheckinOpen, &T::setMobileCheckinOpen),
            VLMSDKProperty::string<T>("reservationInfo", &T::reservationInfo, &T::setReservationInfo),
            VLMSDKProperty::number<T>("remainPriceAmountToPay", &T::remainPriceAmountToPay,
                                      &T::setRemainPriceAmountToPay),
        },
        VLMSDKClass::Operations::mappedAndCoded<T>());
    return descriptor;
}

const VLMSDKClass& VLMSDKReservation::objectClass() const { return classDescriptor(); }

std::string VLMSDKReservation::description() const {
    using D = VLMSDKDescription;
    // The switch from "; " to ", " after checkinVelmoraID is part of the log format that readers rely on.
    return "VLMSDKReservation " + D::pointer(this) + "; guestVelmoraID " + D::string(guestVelmoraID_) +
           "; venueVelmoraID " + D::string(venueVelmoraID_) + "; externalReservationID " +
           D::string(externalReservationID_) + "; internalReservationID " + D::string(internalReservationID_) +
           "; priceCurrencyCode " + D::string(priceCurrencyCode_) + "; checkinDate " + D::date(checkinDate_) +
           "; checkoutDate " + D::date(checkoutDate_) + "; totalStayPriceAmount " +
           D::number(totalStayPriceAmount_) + "; roomNumber " + D::string(roomNumber_) + "; isMobileCheckinOpen " +
           (mobileCheckinOpen_ ? "1" : "0") + "; reservationInfo " + D::string(reservationInfo_) +
           "; checkinVelmoraID " + D::string(checkinVelmoraID_) + ", remainPriceAmountToPay " +
           D::number(remainPriceAmountToPay_) + ", status " + D::string(statusStringRepresentation_) +
           ", clientSideID " + D::string(clientSideID_);
}

const std::vector<std::string>& VLMSDKReservation::encodingProperties() {
    // A fixed contract of the archive, deliberately neither the declaration nor the description order.
    static const std::vector<std::string> names{
        "velmoraID",
        "guestVelmoraID",
        "venueVelmoraID",
        "externalReservationID",
        "internalReservationID",
        "priceCurrencyCode",
        "checkinDate",
        "checkoutDate",
        "totalStayPriceAmount",
        "roomNumber",
        "guests",
        "notSyncedPaidPriceAmount",
        "mobileCheckinOpen",
        "reservationInfo",
        "checkinVelmoraID",
        "remainPriceAmountToPay",
        "statusStringRepresentation",
        "clientSideID",
    };
    return names;
}

void VLMSDKReservation::encodeWithCoder(VLMSDKKeyedArchiver& coder) const { VLMSDKCoder::encodeObject(*this, coder); }

std::shared_ptr<VLMSDKReservation> VLMSDKReservation::initWithCoder(VLMSDKKeyedUnarchiver& coder) {
    return std::dynamic_pointer_cast<VLMSDKReservation>(VLMSDKCoder::objectOfClass(classDescriptor(), coder));
}

std::vector<std::uint8_t> VLMSDKReservation::archivedData(VLMErrorPtr* error) const {
    return VLMSDKCoder::archivedDataWithRootObject(*this, error);
}

std::shared_ptr<VLMSDKReservation> VLMSDKReservation::unarchivedFromData(std::span<const std::uint8_t> data,
                                                                         VLMErrorPtr* error) {
    return VLMSDKCoder::unarchivedObjectOfClass<VLMSDKReservation>(data, error);
}
