#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

VLMSDK_API_BEGIN

/// Writes one keyed archive: a versioned, self-describing byte format holding one root record and the
/// records nested in it. Values are written under string keys, scoped to the record being encoded.
class VLMSDKKeyedArchiver {
public:
    VLMSDKKeyedArchiver();
    ~VLMSDKKeyedArchiver();
    VLMSDKKeyedArchiver(const VLMSDKKeyedArchiver&) = delete;
    VLMSDKKeyedArchiver& operator=(const VLMSDKKeyedArchiver&) = delete;

    /// Writes `value` under `key` in the current record (a later value under the same key wins). Records
    /// inside (Object, ObjectArray) are written through their own `encodeWithCoder` (VLMSDKCoding), with
    /// their class name. Text, numbers (bit for bit: -0, NaN, infinities), booleans, dates and times
    /// come back exactly as written.
    void encodeValue(const VLMSDKPropertyValue& value, std::string_view key);

    /// Writes `object` as the root record (through its `encodeWithCoder`) and returns the archive bytes.
    /// Empty bytes, and `error()` set, when the object or a record inside it does not adopt VLMSDKCoding,
    /// records are nested more than 64 deep, or memory runs out.
    std::vector<std::uint8_t> archiveRootObject(const VLMSDKRootObject& object);

    /// Why the last `archiveRootObject` gave no bytes (kVLMSDKArchiveErrorDomain), or nullptr.
    const VLMErrorPtr& error() const;

private:
    bool encodeRecord(const VLMSDKRootObject& object);

    struct State;
    std::unique_ptr<State> state_;
};

VLMSDK_API_END
