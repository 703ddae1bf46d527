// The guest's JSON mapping.

#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>

#include <map>
#include <string>
#include <utility>

std::shared_ptr<const VLMSDKObjectMapping> VLMSDKReservationGuest::objectMapping() {
    static const std::shared_ptr<const VLMSDKObjectMapping> shared = [] {
        const auto& keys = VLMSDKReservationGuestJSONKeyes;
        std::shared_ptr<VLMSDKObjectMapping> mapping = VLMSDKObjectMapping::mappingForClass(classDescriptor());
        mapping->mapJSONKeysToThePropertyKeys({
            {keys.firstName, "firstName"},
            {keys.lastName, "lastName"},
            {keys.profileCode, "profileCode"},
        });
        return std::shared_ptr<const VLMSDKObjectMapping>(std::move(mapping));
    }();
    return shared;
}
