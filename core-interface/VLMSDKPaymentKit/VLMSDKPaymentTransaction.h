#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKObject.h>

#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// A payment made with a stored card, as the payment service reports it. Mapped from
/// {"id", "amount", "currency", "status", "credit_card_id", "created_at"}.
class VLMSDKPaymentTransaction : public VLMSDKObject {
public:
    /// The amount paid.
    ///@{
    const std::optional<double>& amount() const { return amount_; }
    void setAmount(std::optional<double> amount) { amount_ = amount; }
    ///@}
    /// The currency code of the amount.
    ///@{
    const std::optional<std::string>& currencyCode() const { return currencyCode_; }
    void setCurrencyCode(std::optional<std::string> code) { currencyCode_ = std::move(code); }
    ///@}
    /// The service's status word ("succeeded", "pending", "failed", ...).
    ///@{
    const std::optional<std::string>& status() const { return status_; }
    void setStatus(std::optional<std::string> status) { status_ = std::move(status); }
    ///@}
    /// The stored card charged.
    ///@{
    const std::optional<std::string>& creditCardID() const { return creditCardID_; }
    void setCreditCardID(std::optional<std::string> id) { creditCardID_ = std::move(id); }
    ///@}
    /// When the payment was made.
    ///@{
    const std::optional<VLMSDKTime>& createdAt() const { return createdAt_; }
    void setCreatedAt(std::optional<VLMSDKTime> time) { createdAt_ = time; }
    ///@}

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;
    /// Built once; the same object on every call.
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping();
    std::string description() const override;

private:
    std::optional<double> amount_;
    std::optional<std::string> currencyCode_;
    std::optional<std::string> status_;
    std::optional<std::string> creditCardID_;
    std::optional<VLMSDKTime> createdAt_;
};

VLMSDK_API_END
