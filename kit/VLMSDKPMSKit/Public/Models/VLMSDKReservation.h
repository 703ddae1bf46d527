#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKCoding.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKObject.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

/// \file
/// A reservation and its status.

class VLMSDKKeyedArchiver;
class VLMSDKKeyedUnarchiver;
class VLMSDKObjectMapping;

/// A reservation's status, derived from its status word; a signed integer of native word width.
enum VLMSDKReservationStatus : std::intptr_t {
    VLMSDKReservationStatusUnknown = 0,     ///< no status word, or one other than the three below
    VLMSDKReservationStatusReserved = 1,    ///< "reserved"
    VLMSDKReservationStatusInHouse = 2,     ///< "in_house"
    VLMSDKReservationStatusCheckedOut = 3,  ///< "checked_out"
};

/// One hotel reservation as the reservation service returns it. A plain value holder, mapped from reply
/// JSON and archivable. A new reservation has every property absent (false for `isMobileCheckinOpen`)
/// except `priceCurrencyCode`, which starts as kVLMSDKDefaultCurrencyCode.
class VLMSDKReservation : public VLMSDKObject, public VLMSDKCoding {
public:
    VLMSDKReservation();

    /// The status word as the service sends it; the source of `status()`.
    ///@{
    const std::optional<std::string>& statusStringRepresentation() const { return statusStringRepresentation_; }
    void setStatusStringRepresentation(std::optional<std::string> value) {
        statusStringRepresentation_ = std::move(value);
    }
    ///@}
    /// Platform identifier of the check-in that belongs to the reservation.
    ///@{
    const std::optional<std::string>& checkinVelmoraID() const { return checkinVelmoraID_; }
    void setCheckinVelmoraID(std::optional<std::string> value) { checkinVelmoraID_ = std::move(value); }
    ///@}
    /// Platform identifier of the user who holds the reservation.
    ///@{
    const std::optional<std::string>& guestVelmoraID() const { return guestVelmoraID_; }
    void setGuestVelmoraID(std::optional<std::string> value) { guestVelmoraID_ = std::move(value); }
    ///@}
    /// Platform identifier of the venue (the hotel).
    ///@{
    const std::optional<std::string>& venueVelmoraID() const { return venueVelmoraID_; }
    void setVenueVelmoraID(std::optional<std::string> value) { venueVelmoraID_ = std::move(value); }
    ///@}
    /// The hotel's confirmation number.
    ///@{
    const std::optional<std::string>& externalReservationID() const { return externalReservationID_; }
    void setExternalReservationID(std::optional<std::string> value) { externalReservationID_ = std::move(value); }
    ///@}
    /// The reservation number in the hotel's property-management system.
    ///@{
    const std::optional<std::string>& internalReservationID() const { return internalReservationID_; }
    void setInternalReservationID(std::optional<std::string> value) { internalReservationID_ = std::move(value); }
    ///@}
    /// The client number.
    ///@{
    const std::optional<std::string>& clientSideID() const { return clientSideID_; }
    void setClientSideID(std::optional<std::string> value) { clientSideID_ = std::move(value); }
    ///@}
    /// Currency code of the reservation's amounts.
    ///@{
    const std::optional<std::string>& priceCurrencyCode() const { return priceCurrencyCode_; }
    void setPriceCurrencyCode(std::optional<std::string> value) { priceCurrencyCode_ = std::move(value); }
    ///@}
    /// The day of arrival.
    ///@{
    const std::optional<VLMSDKDate>& checkinDate() const { return checkinDate_; }
    void setCheckinDate(std::optional<VLMSDKDate> value) { checkinDate_ = value; }
    ///@}
    /// The day of departure.
    ///@{
    const std::optional<VLMSDKDate>& checkoutDate() const { return checkoutDate_; }
    void setCheckoutDate(std::optional<VLMSDKDate> value) { checkoutDate_ = value; }
    ///@}
    /// Price of the whole stay.
    ///@{
    const std::optional<double>& totalStayPriceAmount() const { return totalStayPriceAmount_; }
    void setTotalStayPriceAmount(std::optional<double> value) { totalStayPriceAmount_ = value; }
    ///@}
    /// Room number, kept as text.
    ///@{
    const std::optional<std::string>& roomNumber() const { return roomNumber_; }
    void setRoomNumber(std::optional<std::string> value) { roomNumber_ = std::move(value); }
    ///@}
    /// The guests, in reply order.
    ///@{
    const std::vector<std::shared_ptr<VLMSDKReservationGuest>>& guests() const { return guests_; }
    void setGuests(std::vector<std::shared_ptr<VLMSDKReservationGuest>> value) { guests_ = std::move(value); }
    ///@}
    /// Paid amount not yet synchronised with the hotel's system, as a magnitude.
    ///@{
    const std::optional<double>& notSyncedPaidPriceAmount() const { return notSyncedPaidPriceAmount_; }
    void setNotSyncedPaidPriceAmount(std::optional<double> value) { notSyncedPaidPriceAmount_ = value; }
    ///@}
    /// Whether mobile check-in is open for this reservation.
    ///@{
    bool isMobileCheckinOpen() const { return mobileCheckinOpen_; }
    void setMobileCheckinOpen(bool value) { mobileCheckinOpen_ = value; }
    ///@}
    /// Free text about the reservation.
    ///@{
    const std::optional<std::string>& reservationInfo() const { return reservationInfo_; }
    void setReservationInfo(std::optional<std::string> value) { reservationInfo_ = std::move(value); }
    ///@}
    /// Amount still to be paid.
    ///@{
    const std::optional<double>& remainPriceAmountToPay() const { return remainPriceAmountToPay_; }
    void setRemainPriceAmountToPay(std::optional<double> value) { remainPriceAmountToPay_ = value; }
    ///@}

    /// The status read from the current status word on every call: exact, case-sensitive matches of
    /// "reserved", "in_house" and "checked_out"; anything else, absent included, is Unknown.
    VLMSDKReservationStatus status() const;

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;

    /// One line for logs with the address and the printed properties (not guests, the not-synced amount
    /// or velmoraID); absent values print as "(null)".
    std::string description() const override;

    /// How a reservation object of a reply becomes a reservation; built once, the same object every call.
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping();

    /// The 18 archived property names (velmoraID first); built once, the same list on every call.
    static const std::vector<std::string>& encodingProperties();
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override;
    /// Always restores a plain reservation, whatever class wrote the archive; nullptr when it fails.
    static std::shared_ptr<VLMSDKReservation> initWithCoder(VLMSDKKeyedUnarchiver& coder);

    /// The reservation (with its guests) as archive bytes; empty, with an error, on failure.
    std::vector<std::uint8_t> archivedData(VLMErrorPtr* error) const;
    /// The reservation archived in `data`; nullptr, with an error, when the bytes are damaged or hold
    /// another class.
    static std::shared_ptr<VLMSDKReservation> unarchivedFromData(std::span<const std::uint8_t> data,
                                                                 VLMErrorPtr* error);

private:
    std::optional<std::string> statusStringRepresentation_;
    std::optional<std::string> checkinVelmoraID_;
    std::optional<std::string> guestVelmoraID_;
    std::optional<std::string> venueVelmoraID_;
    std::optional<std::string> externalReservationID_;
    std::optional<std::string> internalReservationID_;
    std::optional<std::string> clientSideID_;
    std::optional<std::string> priceCurrencyCode_;
    std::optional<VLMSDKDate> checkinDate_;
    std::optional<VLMSDKDate> checkoutDate_;
    std::optional<double> totalStayPriceAmount_;
    std::optional<std::string> roomNumber_;
    std::vector<std::shared_ptr<VLMSDKReservationGuest>> guests_;
    std::optional<double> notSyncedPaidPriceAmount_;
    bool mobileCheckinOpen_ = false;
    std::optional<std::string> reservationInfo_;
    std::optional<double> remainPriceAmountToPay_;
};

VLMSDK_API_END
