#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <iosfwd>
#include <string>

VLMSDK_API_BEGIN

class VLMSDKClass;

/// \file
/// The root of the SDK's described objects, and how they print.

/// The root of every SDK object that is described by a class descriptor (records, kit entries).
class VLMSDKRootObject {
public:
    virtual ~VLMSDKRootObject() = default;

    /// The descriptor of the object's own (most derived) class.
    virtual const VLMSDKClass& objectClass() const = 0;

    /// Text for logs; by default "<ClassName: 0x...>".
    virtual std::string description() const;

protected:
    /// Made and copied only as a derived object, so that none is sliced through this base.
    ///@{
    VLMSDKRootObject() = default;
    VLMSDKRootObject(const VLMSDKRootObject&) = default;
    VLMSDKRootObject& operator=(const VLMSDKRootObject&) = default;
    ///@}
};

/// Streams `description()`.
std::ostream& operator<<(std::ostream& stream, const VLMSDKRootObject& object);

VLMSDK_API_END
