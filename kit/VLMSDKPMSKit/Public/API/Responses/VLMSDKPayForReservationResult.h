#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <memory>

VLMSDK_API_BEGIN

class VLMSDKClass;

/// The outcome of paying for a reservation: the payment's transaction and the reservation as it stands
/// after the payment. Either may be absent when the reply could not be mapped. Neither mapped nor archived.
class VLMSDKPayForReservationResult : public VLMSDKRootObject {
public:
    VLMSDKPayForReservationResult() = default;

    /// A new result holding `reservation` and `transaction` as given (either may be nullptr).
    static std::shared_ptr<VLMSDKPayForReservationResult> initWithTransaction(
        std::shared_ptr<VLMSDKPaymentTransaction> transaction, std::shared_ptr<VLMSDKReservation> reservation);

    /// The payment's transaction (the reply's "transaction"), or nullptr.
    ///@{
    const std::shared_ptr<VLMSDKPaymentTransaction>& paymentTransaction() const { return paymentTransaction_; }
    void setPaymentTransaction(std::shared_ptr<VLMSDKPaymentTransaction> transaction) {
        paymentTransaction_ = std::move(transaction);
    }
    ///@}
    /// The reservation after the payment (the reply's "reservation"), or nullptr.
    ///@{
    const std::shared_ptr<VLMSDKReservation>& reservation() const { return reservation_; }
    void setReservation(std::shared_ptr<VLMSDKReservation> reservation) { reservation_ = std::move(reservation); }
    ///@}

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;

private:
    std::shared_ptr<VLMSDKPaymentTransaction> paymentTransaction_;
    std::shared_ptr<VLMSDKReservation> reservation_;
};

VLMSDK_API_END
