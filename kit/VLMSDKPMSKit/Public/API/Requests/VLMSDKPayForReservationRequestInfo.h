#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKRequestInfo.h>

#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// One payment against a reservation with a stored credit card. The reservation goes into the request's
/// path, the rest into its body.
class VLMSDKPayForReservationRequestInfo : public VLMSDKRequestInfo {
public:
    /// The reservation paid for; it goes into the path, not the body.
    ///@{
    const std::optional<std::string>& reservationID() const { return reservationID_; }
    void setReservationID(std::optional<std::string> value) { reservationID_ = std::move(value); }
    ///@}
    /// The amount to pay, in `currencyCode` ("amount").
    ///@{
    const std::optional<double>& amount() const { return amount_; }
    void setAmount(std::optional<double> value) { amount_ = value; }
    ///@}
    /// The currency code of the amount ("currency").
    ///@{
    const std::optional<std::string>& currencyCode() const { return currencyCode_; }
    void setCurrencyCode(std::optional<std::string> value) { currencyCode_ = std::move(value); }
    ///@}
    /// The guest's stored card to charge ("credit_card_id").
    ///@{
    const std::optional<std::string>& creditCardID() const { return creditCardID_; }
    void setCreditCardID(std::optional<std::string> value) { creditCardID_ = std::move(value); }
    ///@}

    /// {"credit_card_id", "amount", "currency"}; the amount as the number it is. No reservation member.
    VLMSDKJSON JSONRepresentation() const override;

    /// Tests, in this order: creditCardID non-empty, reservationID non-empty, amount finite (NaN and infinity
    /// cannot be written as JSON) and |amount| at least the double epsilon (absent counts 0; negative passes),
    /// currencyCode non-empty. The error names the first that fails.
    bool isValid(VLMErrorPtr* error) const override;

private:
    std::optional<std::string> reservationID_;
    std::optional<double> amount_;
    std::optional<std::string> currencyCode_;
    std::optional<std::string> creditCardID_;
};

VLMSDK_API_END
