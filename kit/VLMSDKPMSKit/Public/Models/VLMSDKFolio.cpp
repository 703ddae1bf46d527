#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>

#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>

const VLMSDKClass& VLMSDKFolio::classDescriptor() {
    using T = VLMSDKFolio;
    static const VLMSDKClass descriptor(
        "VLMSDKFolio", nullptr, [] { return std::make_shared<T>(); },
        {
            VLMSDKProperty::string<T>("folioID", &T::folioID, &T::setFolioID),
            VLMSDKProperty::number<T>("outstandingAmount", &T::outstandingAmount, &T::setOutstandingAmount),
            VLMSDKProperty::string<T>("paymentCurrency", &T::paymentCurrency, &T::setPaymentCurrency),
            VLMSDKProperty::objectArray<T, VLMSDKFolioDeliverableItem>("deliverables", &T::deliverables,
                                                                       &T::setDeliverables),
        },
        VLMSDKClass::Operations::mapped<T>());
    return descriptor;
}

const VLMSDKClass& VLMSDKFolio::objectClass() const { return classDescriptor(); }

std::string VLMSDKFolio::description() const {
    using D = VLMSDKDescription;
    return "VLMSDKFolio " + D::pointer(this) + "; folioID " + D::string(folioID_) + "; outstandingAmount " +
           D::number(outstandingAmount_) + "; paymentCurrency " + D::string(paymentCurrency_);
}
