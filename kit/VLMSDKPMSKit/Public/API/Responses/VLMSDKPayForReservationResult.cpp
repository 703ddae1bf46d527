#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>

#include <VLMSDKCoreKit/VLMSDKClass.h>

std::shared_ptr<VLMSDKPayForReservationResult> VLMSDKPayForReservationResult::initWithTransaction(
    std::shared_ptr<VLMSDKPaymentTransaction> transaction, std::shared_ptr<VLMSDKReservation> reservation) {
    auto result = std::make_shared<VLMSDKPayForReservationResult>();
    result->setReservation(std::move(reservation));
    result->setPaymentTransaction(std::move(transaction));
    return result;
}

const VLMSDKClass& VLMSDKPayForReservationResult::classDescriptor() {
    using T = VLMSDKPayForReservationResult;
    static const VLMSDKClass descriptor(
        "VLMSDKPayForReservationResult", nullptr, [] { return std::make_shared<T>(); },
        {
            VLMSDKProperty::object<T, VLMSDKPaymentTransaction>("paymentTransaction", &T::paymentTransaction,
                                                                &T::setPaymentTransaction),
            VLMSDKProperty::object<T, VLMSDKReservation>("reservation", &T::reservation, &T::setReservation),
        });
    return descriptor;
}

const VLMSDKClass& VLMSDKPayForReservationResult::objectClass() const { return classDescriptor(); }
