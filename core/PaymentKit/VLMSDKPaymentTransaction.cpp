#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>

const VLMSDKClass& VLMSDKPaymentTransaction::classDescriptor() {
    using T = VLMSDKPaymentTransaction;
    static const VLMSDKClass descriptor(
        "VLMSDKPaymentTransaction", &VLMSDKObject::classDescriptor(), [] { return std::make_shared<T>(); },
        {VLMSDKProperty::number<T>("amount", &T::amount, &T::setAmount),
         VLMSDKProperty::string<T>("currencyCode", &T::currencyCode, &T::setCurrencyCode),
         VLMSDKProperty::string<T>("status", &T::status, &T::setStatus),
         VLMSDKProperty::string<T>("creditCardID", &T::creditCardID, &T::setCreditCardID),
         VLMSDKProperty::time<T>("createdAt", &T::createdAt, &T::setCreatedAt)},
        VLMSDKClass::Operations::mapped<T>());
    return descriptor;
}

const VLMSDKClass& VLMSDKPaymentTransaction::objectClass() const { return classDescriptor(); }

std::shared_ptr<const VLMSDKObjectMapping> VLMSDKPaymentTransaction::objectMapping() {
    static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
        auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
        addVelmoraIDMapping(*built);
        built->mapJSONKeysToThePropertyKeys(
            {{"amount", "amount"}, {"status", "status"}, {"credit_card_id", "creditCardID"}});
        built->mapJSONKey("currency", "currencyCode", VLMSDKCurrencyMapping::currencyAttributeMappingBlock());
        built->mapJSONKey("created_at", "createdAt", VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock());
        return built;
    }();
    return mapping;
}

std::string VLMSDKPaymentTransaction::description() const {
    return "VLMSDKPaymentTransaction " + VLMSDKDescription::pointer(this) + "; velmoraID " +
           VLMSDKDescription::string(velmoraID()) + "; amount " + VLMSDKDescription::number(amount_) +
           "; currencyCode " + VLMSDKDescription::string(currencyCode_) + "; status " +
           VLMSDKDescription::string(status_) + "; creditCardID " + VLMSDKDescription::string(creditCardID_) +
           "; createdAt " + VLMSDKDescription::time(createdAt_);
}
