#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

VLMSDK_API_BEGIN

/// Reads one keyed archive written by VLMSDKKeyedArchiver. Never throws and never reads out of bounds:
/// bytes that are truncated, corrupted, of another format version or of another class make it fail with
/// an error of kVLMSDKArchiveErrorDomain, after which every decode answers absent.
class VLMSDKKeyedUnarchiver {
public:
    /// Checks the header and the checksum at once and reads the records' layout (the bytes are copied);
    /// `error()` tells if that failed.
    explicit VLMSDKKeyedUnarchiver(std::span<const std::uint8_t> data);
    ~VLMSDKKeyedUnarchiver();
    VLMSDKKeyedUnarchiver(const VLMSDKKeyedUnarchiver&) = delete;
    VLMSDKKeyedUnarchiver& operator=(const VLMSDKKeyedUnarchiver&) = delete;

    /// Whether the current record holds a value under `key`; false once the archive failed.
    bool containsValueForKey(std::string_view key) const;

    /// The value under `key` in the current record, read as `kind` (nested records as `elementClass`,
    /// restored through that class's `initWithCoder`). Absent when the key is missing; a value of another
    /// kind fails the archive.
    VLMSDKPropertyValue decodeValue(std::string_view key, VLMSDKPropertyKind kind, const VLMSDKClass* elementClass);

    /// Restores the root record as `objectClass` (through its `initWithCoder`); nullptr and an error when
    /// the archive holds another class (its root class name must be `objectClass`'s) or is damaged. Nested
    /// records are restored as the class their property names, whatever class wrote them.
    std::shared_ptr<VLMSDKRootObject> decodeRootObject(const VLMSDKClass& objectClass);

    /// The first failure met, or nullptr.
    const VLMErrorPtr& error() const;
    /// Records a failure (the first one is kept).
    void failWithError(VLMErrorPtr error);

private:
    VLMSDKPropertyValue decodeChecked(std::string_view key, VLMSDKPropertyKind kind, const VLMSDKClass* elementClass);

    struct State;
    std::unique_ptr<State> state_;
};

VLMSDK_API_END
