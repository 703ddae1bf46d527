#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>

#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKDefaults.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>

VLMSDKFolioDeliverableItem::VLMSDKFolioDeliverableItem() : currency_(kVLMSDKDefaultCurrencyCode) {}

const VLMSDKClass& VLMSDKFolioDeliverableItem::classDescriptor() {
    using T = VLMSDKFolioDeliverableItem;
    static const VLMSDKClass descriptor(
        "VLMSDKFolioDeliverableItem", nullptr, [] { return std::make_shared<T>(); },
        {
            VLMSDKProperty::string<T>("name", &T::name, &T::setName),
            VLMSDKProperty::string<T>("code", &T::code, &T::setCode),
            VLMSDKProperty::string<T>("currency", &T::currency, &T::setCurrency),
            VLMSDKProperty::number<T>("price", &T::price, &T::setPrice),
        },
        VLMSDKClass::Operations::mapped<T>());
    return descriptor;
}

const VLMSDKClass& VLMSDKFolioDeliverableItem::objectClass() const { return classDescriptor(); }

std::string VLMSDKFolioDeliverableItem::description() const {
    using D = VLMSDKDescription;
    return "VLMSDKFolioDeliverableItem " + D::pointer(this) + "; name " + D::string(name_) + "; code " +
           D::string(code_) + "; currency " + D::string(currency_) + "; price " + D::number(price_);
}
