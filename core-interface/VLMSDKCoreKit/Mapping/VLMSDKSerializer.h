#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <memory>
#include <vector>

VLMSDK_API_BEGIN

/// Turns records into JSON by a serialization mapping (the reverse of VLMSDKMapper). Stateless.
class VLMSDKSerializer {
public:
    /// A JSON array with one object per record, in order. Each object holds the JSON key of every plain
    /// entry of the mapping whose property is present (absent properties, empty arrays of records among
    /// them, are left out); has-many entries
    /// (and plain entries of record properties) serialize their records with the element class's
    /// serialization mapping. Records of a class not derived from the mapping's, and null elements, are
    /// skipped. A null mapping gives an empty array. Transformed entries are not written (a transform has
    /// no inverse).
    ///
    /// Values: text as JSON text; numbers as JSON numbers, integral ones as JSON integers (12, not 12.0;
    /// -0 as 0), NaN and infinities as they are (a request body holding one is not sent); booleans as JSON booleans; dates as "YYYY-MM-DD"; times as
    /// "YYYY-MM-DDTHH:MM:SSZ" (dates and times beyond the years -32767 to 32767 left out).
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

VLMSDK_API_END
