#pragma once

#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Writes one keyed archive: a versioned, self-describing byte format holding one root record and the
/// records nested in it. Values are written under string keys, scoped to the record being encoded.
class VLMSDKKeyedArchiver {
public:
    VLMSDKKeyedArchiver();
    ~VLMSDKKeyedArchiver();
    VLMSDKKeyedArchiver(const VLMSDKKeyedArchiver&) = delete;
    VLMSDKKeyedArchiver& operator=(const VLMSDKKeyedArchiver&) = delete;

    /// Writes `value` under `key` in the current record. Records inside (Object, ObjectArray) are written
    /// through their own `encodeWithCoder` (VLMSDKCoding), with their class name.
    void encodeValue(const VLMSDKPropertyValue& value, std::string_view key);

    /// Writes `object` as the root record (through its `encodeWithCoder`) and returns the archive bytes.
    /// Empty bytes when the object's class does not adopt VLMSDKCoding.
    std::vector<std::uint8_t> archiveRootObject(const VLMSDKRootObject& object);

private:
    struct State;
    std::unique_ptr<State> state_;
};
