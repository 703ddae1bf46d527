// The posting's JSON mapping and the kit's amount-text transform.

#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Private/Models/VLMSDKDecimalText.h>

#include <map>
#include <string>
#include <utility>

namespace {

// Posting amounts may arrive as text ("9.90"). Text becomes the number it starts with (0 when none, the
// sign kept: a credit stays negative); every other value, null included, is handed on unchanged, except
// that an array or object is handed on empty: only its kind matters to the mapper, which refuses it, and
// copying it whole would walk whatever nesting the reply holds.
VLMSDKMappedValue amountTextTransform(const VLMSDKJSON& value) {
    try {
        if (value.is_structured()) return VLMSDKMappedValue(std::in_place_type<VLMSDKJSON>, VLMSDKJSON(value.type()));
        if (!value.is_string()) return VLMSDKMappedValue(std::in_place_type<VLMSDKJSON>, value);
        return VLMSDKMappedValue(std::in_place_type<VLMSDKJSON>,
                                 vlmsdk::detail::leadingDecimalValue(value.get_ref<const std::string&>()));
    } catch (const std::exception& exception) {
        VLMErrorPtr error =
            VLMError::errorWithCode(VLMErrorCode::Mapping, kVLMSDKMappingErrorDomain,
                                    std::string("Could not read the posting amount: ") + exception.what(),
                                    __func__, __FILE__);
        return VLMSDKMappedValue(std::in_place_type<VLMErrorPtr>, std::move(error));
    }
}

}  // namespace

std::shared_ptr<const VLMSDKObjectMapping> VLMSDKFolioDeliverableItem::objectMapping() {
    static const std::shared_ptr<const VLMSDKObjectMapping> shared = [] {
        const auto& keys = VLMSDKFolioDeliverableItemJSONKeyes;
        std::shared_ptr<VLMSDKObjectMapping> mapping = VLMSDKObjectMapping::mappingForClass(classDescriptor());
        mapping->mapJSONKeysToThePropertyKeys({
            {keys.postingName, "name"},
            {keys.postingCode, "code"},
        });
        mapping->mapJSONKey(keys.currencyCode, "currency", VLMSDKCurrencyMapping::currencyAttributeMappingBlock());
        mapping->mapJSONKey(keys.amount, "price", &amountTextTransform);
        return std::shared_ptr<const VLMSDKObjectMapping>(std::move(mapping));
    }();
    return shared;
}
