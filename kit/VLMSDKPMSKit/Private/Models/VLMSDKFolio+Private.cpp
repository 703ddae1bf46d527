// The folio's JSON mapping.

#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>

#include <map>
#include <string>
#include <utility>

std::shared_ptr<const VLMSDKObjectMapping> VLMSDKFolio::objectMapping() {
    static const std::shared_ptr<const VLMSDKObjectMapping> shared = [] {
        const auto& keys = VLMSDKFolioJSONKeyes;
        std::shared_ptr<VLMSDKObjectMapping> mapping = VLMSDKObjectMapping::mappingForClass(classDescriptor());
        // The outstanding amount is handed on as it comes; only a posting's amount text is converted.
        mapping->mapJSONKeysToThePropertyKeys({
            {keys.folioID, "folioID"},
            {keys.outstandingAmount, "outstandingAmount"},
        });
        // The reply's postings travel as "transactions"; the folio keeps them as deliverables.
        mapping->mapHasManyRelationshipOfClass(VLMSDKFolioDeliverableItem::classDescriptor(), keys.transactions,
                                               "deliverables");
        mapping->mapJSONKey(keys.currency, "paymentCurrency", VLMSDKCurrencyMapping::currencyAttributeMappingBlock());
        return std::shared_ptr<const VLMSDKObjectMapping>(std::move(mapping));
    }();
    return shared;
}
