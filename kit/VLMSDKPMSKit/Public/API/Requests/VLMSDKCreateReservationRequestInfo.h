#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKRequestInfo.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// The body of "create reservation": the hotel's booking reference, the venue, and the last name the
/// room was booked under. Compared and hashed by value.
class VLMSDKCreateReservationRequestInfo : public VLMSDKRequestInfo {
public:
    /// The booking confirmation number in the hotel's system ("confirmation_id").
    ///@{
    const std::optional<std::string>& externalReservationID() const { return externalReservationID_; }
    void setExternalReservationID(std::optional<std::string> value) { externalReservationID_ = std::move(value); }
    ///@}
    /// The venue's platform identifier ("venue_id").
    ///@{
    const std::optional<std::string>& venueVelmoraID() const { return venueVelmoraID_; }
    void setVenueVelmoraID(std::optional<std::string> value) { venueVelmoraID_ = std::move(value); }
    ///@}
    /// The last name of whoever made the booking ("last_name").
    ///@{
    const std::optional<std::string>& reservationistLastName() const { return reservationistLastName_; }
    void setReservationistLastName(std::optional<std::string> value) { reservationistLastName_ = std::move(value); }
    ///@}

    /// {"last_name", "confirmation_id", "venue_id"}, keys from VLMSDKReservationJSONKeyes; absent values left out.
    VLMSDKJSON JSONRepresentation() const override;

    /// Tests, in this order, that reservationistLastName, venueVelmoraID and externalReservationID are
    /// present (an empty string passes); the error names the first that is absent.
    bool isValid(VLMErrorPtr* error) const override;

    /// True when `object` is a create request (or derived from one) with equal strings.
    bool isEqual(const VLMSDKRequestInfo* object) const;
    /// The sum of the three strings' hashes, an absent string counting 0.
    std::size_t hash() const;

    /// Equality by value, as `isEqual`.
    friend bool operator==(const VLMSDKCreateReservationRequestInfo& a, const VLMSDKCreateReservationRequestInfo& b) {
        return a.isEqual(&b);
    }

private:
    std::optional<std::string> externalReservationID_;
    std::optional<std::string> venueVelmoraID_;
    std::optional<std::string> reservationistLastName_;
};

/// Hashes a create request by value, so that it can key an unordered container.
template <>
struct std::hash<VLMSDKCreateReservationRequestInfo> {
    /// `request.hash()`.
    std::size_t operator()(const VLMSDKCreateReservationRequestInfo& request) const { return request.hash(); }
};

VLMSDK_API_END
