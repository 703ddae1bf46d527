#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

VLMSDK_API_BEGIN

/// A request description: the body of one operation, able to check itself before it is sent.
class VLMSDKRequestInfo {
public:
    virtual ~VLMSDKRequestInfo() = default;

    /// The request body, a JSON object. Does not validate.
    virtual VLMSDKJSON JSONRepresentation() const = 0;

    /// True when the request may be sent. Otherwise false, and the required-argument error naming the
    /// first missing or invalid property is stored through `error` when one was given.
    virtual bool isValid(VLMErrorPtr* error) const = 0;

protected:
    /// Made and copied only as a derived description, so that none is sliced through this base.
    ///@{
    VLMSDKRequestInfo() = default;
    VLMSDKRequestInfo(const VLMSDKRequestInfo&) = default;
    VLMSDKRequestInfo& operator=(const VLMSDKRequestInfo&) = default;
    ///@}
};

VLMSDK_API_END
