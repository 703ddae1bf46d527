#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>

#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKDescription.h>

VLMSDKDeliverableCountableItem::VLMSDKDeliverableCountableItem(std::string itemID, double count)
    : itemID_(std::move(itemID)), count_(count) {}

const VLMSDKClass& VLMSDKDeliverableCountableItem::classDescriptor() {
    using Item = VLMSDKDeliverableCountableItem;
    static const VLMSDKClass descriptor(
        "VLMSDKDeliverableCountableItem", nullptr, [] { return std::make_shared<Item>(); },
        {VLMSDKProperty::string<Item>("itemID", &Item::itemID, &Item::setItemID),
         VLMSDKProperty::number<Item>("count", &Item::count, &Item::setCount)},
        VLMSDKClass::Operations{nullptr, &Item::serializationMapping, nullptr, nullptr});
    return descriptor;
}

const VLMSDKClass& VLMSDKDeliverableCountableItem::objectClass() const { return classDescriptor(); }

std::shared_ptr<const VLMSDKObjectMapping> VLMSDKDeliverableCountableItem::serializationMapping() {
    static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
        auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
        built->mapJSONKeysToThePropertyKeys({{"item_id", "itemID"}, {"quantity", "count"}});
        return built;
    }();
    return mapping;
}

std::string VLMSDKDeliverableCountableItem::description() const {
    return "VLMSDKDeliverableCountableItem " + VLMSDKDescription::pointer(this) + "; itemID " +
           VLMSDKDescription::string(itemID_) + "; count " + VLMSDKDescription::number(count_);
}
