#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// An item to charge to a bill: which item (the venue's catalog identifier) and how many.
/// Serialized as {"item_id": text, "quantity": number}.
class VLMSDKDeliverableCountableItem : public VLMSDKRootObject {
public:
    VLMSDKDeliverableCountableItem() = default;
    /// The item `itemID`, `count` of it.
    VLMSDKDeliverableCountableItem(std::string itemID, double count);

    /// The item's identifier in the venue's catalog ("item_id").
    ///@{
    const std::optional<std::string>& itemID() const { return itemID_; }
    void setItemID(std::optional<std::string> itemID) { itemID_ = std::move(itemID); }
    ///@}
    /// How many ("quantity").
    ///@{
    const std::optional<double>& count() const { return count_; }
    void setCount(std::optional<double> count) { count_ = count; }
    ///@}

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;
    /// How an item is written into a request body; built once.
    static std::shared_ptr<const VLMSDKObjectMapping> serializationMapping();
    std::string description() const override;

private:
    std::optional<std::string> itemID_;
    std::optional<double> count_;
};

VLMSDK_API_END
