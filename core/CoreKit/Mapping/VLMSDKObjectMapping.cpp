#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>

#include <VLMSDKCoreKit/VLMSDKAsserts.h>

#include "VLMSDKTextTransforms.h"

#include <algorithm>

std::shared_ptr<VLMSDKObjectMapping> VLMSDKObjectMapping::mappingForClass(const VLMSDKClass& objectClass) {
    return std::make_shared<VLMSDKObjectMapping>(objectClass);
}

VLMSDKObjectMapping::VLMSDKObjectMapping(const VLMSDKClass& objectClass) : objectClass_(&objectClass) {}

const VLMSDKProperty* VLMSDKObjectMapping::resolve(const std::string& propertyName) const {
    const VLMSDKProperty* property = objectClass_->propertyNamed(propertyName);
    if (!property) {
        VLMSDKAsserts::handleAssertWithMessage(
            "VLMSDKObjectMapping: class %s has no property named \"%s\"; entry skipped", objectClass_->name().c_str(),
            propertyName.c_str());
    }
    return property;
}

void VLMSDKObjectMapping::mapJSONKeysToThePropertyKeys(
    const std::map<std::string, std::string>& jsonKeysToPropertyKeys) {
    for (const auto& [key, propertyName] : jsonKeysToPropertyKeys) {
        if (const VLMSDKProperty* property = resolve(propertyName)) {
            add(Entry{EntryKind::Plain, key, property, {}, nullptr});
        }
    }
}

void VLMSDKObjectMapping::mapJSONKey(const std::string& key, const std::string& toTheProperyName,
                                     VLMSDKAttributeMappingBlock mappingBlock) {
    const VLMSDKProperty* property = resolve(toTheProperyName);
    if (!property) return;
    if (!mappingBlock) {
        VLMSDKAsserts::handleAssertWithMessage(
            "VLMSDKObjectMapping: entry \"%s\" -> %s.%s has no transform; entry skipped", key.c_str(),
            objectClass_->name().c_str(), toTheProperyName.c_str());
        return;
    }
    add(Entry{EntryKind::Transformed, key, property, std::move(mappingBlock), nullptr});
}

void VLMSDKObjectMapping::mapHasManyRelationshipOfClass(const VLMSDKClass& objectClass, const std::string& fromJSONKey,
                                                        const std::string& toThePropertyName) {
    const VLMSDKProperty* property = resolve(toThePropertyName);
    if (!property) return;
    if (property->kind() != VLMSDKPropertyKind::ObjectArray || !property->elementClass() ||
        !objectClass.isSubclassOfClass(*property->elementClass())) {
        VLMSDKAsserts::handleAssertWithMessage(
            "VLMSDKObjectMapping: %s.%s cannot hold an array of %s; entry skipped", objectClass_->name().c_str(),
            toThePropertyName.c_str(), objectClass.name().c_str());
        return;
    }
    add(Entry{EntryKind::HasMany, fromJSONKey, property, {}, &objectClass});
}

void VLMSDKObjectMapping::add(Entry entry) {
    if (entry.kind == EntryKind::Transformed) {
        entry.textForm = vlmsdk::detail::textFormOf(entry.mappingBlock);
        entry.keepsText = vlmsdk::detail::keepsTextAsItIs(entry.mappingBlock);
    }
    entries_.push_back(std::move(entry));
    const std::size_t added = entries_.size() - 1;
    // After the entries of an equal key: entries sharing a key keep the order they were added in.
    const auto at = std::upper_bound(entriesByKey_.begin(), entriesByKey_.end(), added,
                                     [this](std::size_t a, std::size_t b) {
                                         return vlmsdk::detail::shorterOrBefore(entries_[a].jsonKey, entries_[b].jsonKey);
                                     });
    entriesByKey_.insert(at, added);
}
