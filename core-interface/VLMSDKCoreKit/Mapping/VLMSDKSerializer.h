#pragma once

#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <memory>
#include <vector>

/// Turns records into JSON by a serialization mapping (the reverse of VLMSDKMapper). Stateless.
class VLMSDKSerializer {
public:
    /// A JSON array with one object per record, in order. Each object holds the JSON key of every plain
    /// entry of the mapping whose property is present (absent properties are left out); has-many entries
    /// serialize their records with the element class's serialization mapping. Records of another class
    /// than the mapping's, and null elements, are skipped. A null mapping gives an empty array.
    static VLMSDKJSON serializeCollection(const std::vector<std::shared_ptr<VLMSDKRootObject>>& collection,
                                          const std::shared_ptr<const VLMSDKObjectMapping>& withMapping);

    /// Typed convenience: any vector of records.
    template <class T>
    static VLMSDKJSON serializeCollection(const std::vector<std::shared_ptr<T>>& collection,
                                          const std::shared_ptr<const VLMSDKObjectMapping>& withMapping) {
        return serializeCollection(std::vector<std::shared_ptr<VLMSDKRootObject>>(collection.begin(), collection.end()),
                                   withMapping);
    }
};
