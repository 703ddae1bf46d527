#include <VLMSDKCoreKit/Archiving/VLMSDKCoder.h>

#include "VLMSDKArchiveFormat.h"

#include <VLMSDKCoreKit/VLMSDKAsserts.h>
#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include <exception>

using vlmsdk::detail::archiveError;

namespace {

// The listed property, or nullptr (reported: a name the class lacks is a programmer error).
const VLMSDKProperty* listedProperty(const VLMSDKClass& objectClass, const std::string& name) {
    const VLMSDKProperty* property = objectClass.propertyNamed(name);
    if (!property) {
        VLMSDKAsserts::handleAssertWithMessage(
            "VLMSDKCoder: %s lists \"%s\" in encodingProperties but has no such property", objectClass.name().c_str(),
            name.c_str());
    }
    return property;
}

}  // namespace

void VLMSDKCoder::encodeObject(const VLMSDKRootObject& object, VLMSDKKeyedArchiver& withCoder) {
    const VLMSDKClass& objectClass = object.objectClass();
    if (!objectClass.operations().encodingProperties) return;
    for (const std::string& name : objectClass.operations().encodingProperties()) {
        if (const VLMSDKProperty* property = listedProperty(objectClass, name)) {
            withCoder.encodeValue(property->get(object), name);
        }
    }
}

std::shared_ptr<VLMSDKRootObject> VLMSDKCoder::objectOfClass(const VLMSDKClass& objectClass,
                                                             VLMSDKKeyedUnarchiver& fromCoder) {
    if (fromCoder.error()) return nullptr;
    std::shared_ptr<VLMSDKRootObject> object = objectClass.makeInstance();
    if (!object) {
        fromCoder.failWithError(archiveError(objectClass.name() + " cannot be unarchived: it makes no instances"));
        return nullptr;
    }
    if (!objectClass.operations().encodingProperties) return object;
    for (const std::string& name : objectClass.operations().encodingProperties()) {
        const VLMSDKProperty* property = listedProperty(objectClass, name);
        // A key the archive lacks (an older writer, say) leaves the value the class gave.
        if (!property || !fromCoder.containsValueForKey(name)) continue;
        VLMSDKPropertyValue value = fromCoder.decodeValue(name, property->kind(), property->elementClass());
        if (fromCoder.error()) return nullptr;
        // A boolean has no absent state; an absent one keeps the class's value.
        if (std::holds_alternative<std::monostate>(value) && property->kind() == VLMSDKPropertyKind::Boolean) continue;
        if (!property->set(*object, std::move(value))) {
            fromCoder.failWithError(
                archiveError("the archived value of \"" + name + "\" does not fit " + objectClass.name()));
            return nullptr;
        }
    }
    return object;
}

std::vector<std::uint8_t> VLMSDKCoder::archivedDataWithRootObject(const VLMSDKRootObject& object, VLMErrorPtr* error) {
    try {
        VLMSDKKeyedArchiver archiver;
        std::vector<std::uint8_t> data = archiver.archiveRootObject(object);
        if (data.empty() && error) {
            *error = archiver.error() ? archiver.error()
                                      : archiveError(object.objectClass().name() + " could not be archived");
        }
        return data;
    } catch (const std::exception& exception) {
        if (error) *error = archiveError(std::string("archiving stopped: ") + exception.what());
    }
    return {};
}

std::shared_ptr<VLMSDKRootObject> VLMSDKCoder::unarchivedObjectOfClass(const VLMSDKClass& objectClass,
                                                                       std::span<const std::uint8_t> data,
                                                                       VLMErrorPtr* error) {
    try {
        VLMSDKKeyedUnarchiver unarchiver(data);
        auto object = unarchiver.decodeRootObject(objectClass);
        if (!object && error) {
            *error = unarchiver.error() ? unarchiver.error()
                                        : archiveError(objectClass.name() + " could not be unarchived");
        }
        return object;
    } catch (const std::exception& exception) {
        if (error) *error = archiveError(std::string("unarchiving stopped: ") + exception.what());
    }
    return nullptr;
}
