#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <optional>
#include <string>

VLMSDK_API_BEGIN

class VLMSDKClass;
class VLMSDKObjectMapping;

/// The base of the SDK's records that carry a platform identifier.
class VLMSDKObject : public VLMSDKRootObject {
public:
    /// The JSON key of the platform identifier.
    static constexpr const char* kVelmoraIDJSONKey = "id";

    /// The record's platform identifier.
    ///@{
    const std::optional<std::string>& velmoraID() const { return velmoraID_; }
    void setVelmoraID(std::optional<std::string> velmoraID) { velmoraID_ = std::move(velmoraID); }
    ///@}

    /// Adds to `mapping` the entry that fills `velmoraID` from "id", through the identifier transform.
    static void addVelmoraIDMapping(VLMSDKObjectMapping& mapping);

    /// The descriptor of this base class: it lists `velmoraID` and makes no instances.
    static const VLMSDKClass& classDescriptor();

private:
    std::optional<std::string> velmoraID_;
};

VLMSDK_API_END
