#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKKeyedArchiver.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKKeyedUnarchiver.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

VLMSDK_API_BEGIN

/// Archives records by their class's `encodingProperties`, and turns records into bytes and back.
///
/// Each listed property is archived under its own name. A listed name the class has no property of is a
/// programmer error: it is reported through VLMSDKAsserts and skipped, on both sides.
class VLMSDKCoder {
public:
    /// Writes every property named by the record's class's `encodingProperties` into `withCoder`, absent
    /// values included (so that they come back absent, not as the class's defaults).
    static void encodeObject(const VLMSDKRootObject& object, VLMSDKKeyedArchiver& withCoder);

    /// A new record of exactly `objectClass` (made by its descriptor's factory) whose archived properties
    /// are restored from `fromCoder`. A key the archive lacks leaves the value the factory gave. nullptr
    /// when the archive fails (a value of another kind, a nested record that cannot be restored, a class
    /// without a factory); `fromCoder.error()` then says why.
    static std::shared_ptr<VLMSDKRootObject> objectOfClass(const VLMSDKClass& objectClass,
                                                           VLMSDKKeyedUnarchiver& fromCoder);

    /// The archive bytes of `object`; empty, with an error, when its class cannot be archived.
    static std::vector<std::uint8_t> archivedDataWithRootObject(const VLMSDKRootObject& object, VLMErrorPtr* error);

    /// The record archived in `data`, restored as `objectClass`; nullptr, with an error, when the bytes are
    /// damaged, of another format version or of another class.
    static std::shared_ptr<VLMSDKRootObject> unarchivedObjectOfClass(const VLMSDKClass& objectClass,
                                                                     std::span<const std::uint8_t> data,
                                                                     VLMErrorPtr* error);

    /// The same for the record class `T` (its `classDescriptor()`), typed.
    template <class T>
    static std::shared_ptr<T> unarchivedObjectOfClass(std::span<const std::uint8_t> data, VLMErrorPtr* error) {
        return std::dynamic_pointer_cast<T>(unarchivedObjectOfClass(T::classDescriptor(), data, error));
    }
};

VLMSDK_API_END
