#include <VLMSDKCoreKit/VLMSDKObject.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKVelmoraIDMapping.h>
#include <VLMSDKCoreKit/VLMSDKAsserts.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

const VLMSDKClass& VLMSDKObject::classDescriptor() {
    static const VLMSDKClass descriptor(
        "VLMSDKObject", nullptr, nullptr,
        {VLMSDKProperty::string<VLMSDKObject>("velmoraID", &VLMSDKObject::velmoraID, &VLMSDKObject::setVelmoraID)});
    return descriptor;
}

void VLMSDKObject::addVelmoraIDMapping(VLMSDKObjectMapping& mapping) {
    if (!mapping.objectClass().isSubclassOfClass(classDescriptor())) {
        VLMSDKAsserts::handleAssertWithMessage(
            "VLMSDKObject::addVelmoraIDMapping: %s does not derive from VLMSDKObject; no identifier entry added",
            mapping.objectClass().name().c_str());
        return;
    }
    mapping.mapJSONKey(kVelmoraIDJSONKey, "velmoraID", VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock());
}
