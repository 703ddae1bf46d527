#include <VLMSDKCoreKit/VLMSDKClass.h>

VLMSDKProperty::VLMSDKProperty(std::string name, VLMSDKPropertyKind kind, const VLMSDKClass* elementClass,
                               Getter getter, Setter setter)
    : name_(std::move(name)), kind_(kind), elementClass_(elementClass), getter_(std::move(getter)),
      setter_(std::move(setter)) {}

VLMSDKClass::VLMSDKClass(std::string name, const VLMSDKClass* superclass, Factory factory,
                         std::vector<VLMSDKProperty> properties, Operations operations)
    : name_(std::move(name)), superclass_(superclass), factory_(std::move(factory)),
      operations_(std::move(operations)) {
    if (superclass_) properties_ = superclass_->properties();
    for (auto& property : properties) properties_.push_back(std::move(property));
}

const VLMSDKProperty* VLMSDKClass::propertyNamed(std::string_view name) const {
    for (const auto& property : properties_) {
        if (property.name() == name) return &property;
    }
    return nullptr;
}

bool VLMSDKClass::isSubclassOfClass(const VLMSDKClass& other) const {
    for (const VLMSDKClass* c = this; c; c = c->superclass_) {
        if (c == &other) return true;
    }
    return false;
}
