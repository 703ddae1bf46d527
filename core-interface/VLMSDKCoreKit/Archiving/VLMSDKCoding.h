#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

VLMSDK_API_BEGIN

class VLMSDKKeyedArchiver;

/// A record that can be archived. Its class also offers `static const std::vector<std::string>&
/// encodingProperties()` (the names of the properties to archive, built once) and a restoring factory,
/// both listed in its descriptor's operations (`encodingProperties`, `initWithCoder`).
class VLMSDKCoding {
public:
    virtual ~VLMSDKCoding() = default;

    /// Writes the record into `coder`.
    virtual void encodeWithCoder(VLMSDKKeyedArchiver& coder) const = 0;
};

VLMSDK_API_END
