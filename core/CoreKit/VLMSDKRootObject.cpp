#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <cstdio>
#include <ostream>

std::string VLMSDKRootObject::description() const {
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    return "<" + objectClass().name() + ": " + address + ">";
}

std::ostream& operator<<(std::ostream& stream, const VLMSDKRootObject& object) {
    return stream << object.description();
}
