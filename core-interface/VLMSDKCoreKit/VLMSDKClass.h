#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

VLMSDK_API_BEGIN

class VLMSDKObjectMapping;
class VLMSDKKeyedUnarchiver;

/// \file
/// Class descriptors and their properties: how mapping and archiving read and write a record's properties
/// by name.

/// A calendar date, and a point in time to the second (UTC).
///@{
using VLMSDKDate = std::chrono::sys_days;
using VLMSDKTime = std::chrono::sys_seconds;
///@}
/// The value of an ObjectArray property: records of its element class, in order.
using VLMSDKObjectArray = std::vector<std::shared_ptr<VLMSDKRootObject>>;

/// The kinds of value a described property holds.
enum class VLMSDKPropertyKind { String, Number, Boolean, Date, Time, Object, ObjectArray };

/// \var VLMSDKPropertyKind::String
/// Text (`std::string`).
/// \var VLMSDKPropertyKind::Number
/// A number (`double`).
/// \var VLMSDKPropertyKind::Boolean
/// A flag (`bool`), never absent.
/// \var VLMSDKPropertyKind::Date
/// A calendar date (VLMSDKDate).
/// \var VLMSDKPropertyKind::Time
/// A point in time (VLMSDKTime).
/// \var VLMSDKPropertyKind::Object
/// One record of the property's element class.
/// \var VLMSDKPropertyKind::ObjectArray
/// Records of the property's element class (VLMSDKObjectArray).

/// A property's value, read or written by name. `std::monostate` is an absent value.
using VLMSDKPropertyValue = std::variant<std::monostate, std::string, double, bool, VLMSDKDate, VLMSDKTime,
                                         std::shared_ptr<VLMSDKRootObject>, VLMSDKObjectArray>;

/// One property of a class, reachable by name: the stand-in for key-value access that mapping and
/// archiving need. Immutable once made.
class VLMSDKProperty {
public:
    /// Reads the property of a record.
    using Getter = std::function<VLMSDKPropertyValue(const VLMSDKRootObject&)>;
    /// Stores a value into the property of a record; false when it does not fit.
    using Setter = std::function<bool(VLMSDKRootObject&, VLMSDKPropertyValue&&)>;

    /// A property named `name` holding `kind` (of `elementClass`, for records), read through `getter` and
    /// written through `setter`. The factories below make these from a record's accessors.
    VLMSDKProperty(std::string name, VLMSDKPropertyKind kind, const VLMSDKClass* elementClass, Getter getter,
                   Setter setter);

    /// The property's name, as mappings and archives refer to it.
    const std::string& name() const { return name_; }
    /// The kind of value it holds.
    VLMSDKPropertyKind kind() const { return kind_; }
    /// For Object and ObjectArray properties: the class of the record(s) held. An ObjectArray property is a
    /// `std::vector<std::shared_ptr<E>>`, empty when absent; its elements are never null.
    const VLMSDKClass* elementClass() const { return elementClass_; }

    /// The value in `object`, a record of the class; `std::monostate` when absent.
    VLMSDKPropertyValue get(const VLMSDKRootObject& object) const { return getter_(object); }
    /// Stores `value`; false (and nothing stored) when its alternative does not fit the kind, or a record
    /// in it is not of the element class. `std::monostate` clears the property (false for Boolean).
    bool set(VLMSDKRootObject& object, VLMSDKPropertyValue value) const { return setter_(object, std::move(value)); }

    /// Factories from a record's own accessors, one per kind. `T` is the record class (`E`, for records,
    /// the class held); getters return (a reference to) the stored value; setters take the value.
    ///@{
    template <class T, class G, class S> static VLMSDKProperty string(std::string name, G getter, S setter);
    template <class T, class G, class S> static VLMSDKProperty number(std::string name, G getter, S setter);
    template <class T, class G, class S> static VLMSDKProperty boolean(std::string name, G getter, S setter);
    template <class T, class G, class S> static VLMSDKProperty date(std::string name, G getter, S setter);
    template <class T, class G, class S> static VLMSDKProperty time(std::string name, G getter, S setter);
    template <class T, class E, class G, class S> static VLMSDKProperty object(std::string name, G getter, S setter);
    template <class T, class E, class G, class S> static VLMSDKProperty objectArray(std::string name, G getter, S setter);
    ///@}

private:
    template <class T, class V, class G, class S>
    static VLMSDKProperty optionalValue(std::string name, VLMSDKPropertyKind kind, G getter, S setter);

    std::string name_;
    VLMSDKPropertyKind kind_;
    const VLMSDKClass* elementClass_;
    Getter getter_;
    Setter setter_;
};

/// One immutable descriptor per class: its name, its superclass, a factory of default-constructed
/// instances, its properties by name, and the class operations the SDK looks up through it (mapping and
/// archiving). Descriptors are compared by address: two classes are the same class only when they are
/// the very same descriptor.
class VLMSDKClass {
public:
    /// Makes a default-constructed instance.
    using Factory = std::function<std::shared_ptr<VLMSDKRootObject>()>;
    /// Answers one of the class's mappings.
    using MappingProvider = std::function<std::shared_ptr<const VLMSDKObjectMapping>()>;
    /// Answers the names of the class's archived properties.
    using NameListProvider = std::function<const std::vector<std::string>&()>;
    /// Restores an instance from an archive.
    using Decoder = std::function<std::shared_ptr<VLMSDKRootObject>(VLMSDKKeyedUnarchiver&)>;

    /// The optional class operations. Empty functions mean the class does not offer them.
    struct Operations {
        MappingProvider objectMapping;        ///< the class adopts VLMSDKMapping
        MappingProvider serializationMapping; ///< optional part of VLMSDKMapping
        NameListProvider encodingProperties;  ///< the class adopts VLMSDKCoding ...
        Decoder initWithCoder;                ///< ... and restores itself through this

        /// The operations of a class `T` mapped from JSON: `T::objectMapping`.
        template <class T>
        static Operations mapped() {
            Operations operations;
            operations.objectMapping = &T::objectMapping;
            return operations;
        }

        /// The operations of a class `T` mapped from JSON and archived: `T::objectMapping`,
        /// `T::encodingProperties` and `T::initWithCoder`.
        template <class T>
        static Operations mappedAndCoded() {
            Operations operations = mapped<T>();
            operations.encodingProperties = &T::encodingProperties;
            operations.initWithCoder = [](VLMSDKKeyedUnarchiver& coder) -> std::shared_ptr<VLMSDKRootObject> {
                return T::initWithCoder(coder);
            };
            return operations;
        }
    };

    /// `properties` are the class's own; a superclass's come first in `properties()`.
    VLMSDKClass(std::string name, const VLMSDKClass* superclass, Factory factory,
                std::vector<VLMSDKProperty> properties, Operations operations = {});
    VLMSDKClass(const VLMSDKClass&) = delete;
    VLMSDKClass& operator=(const VLMSDKClass&) = delete;

    /// The class's name, as archives and descriptions show it.
    const std::string& name() const { return name_; }
    /// The descriptor of the class it derives from, or nullptr.
    const VLMSDKClass* superclass() const { return superclass_; }
    /// A new default-constructed instance, or nullptr for a class that cannot be instantiated.
    std::shared_ptr<VLMSDKRootObject> makeInstance() const { return factory_ ? factory_() : nullptr; }
    /// Every property, inherited ones first.
    const std::vector<VLMSDKProperty>& properties() const { return properties_; }
    /// The property named `name`, inherited ones included, or nullptr.
    const VLMSDKProperty* propertyNamed(std::string_view name) const;
    /// True for this class and every class derived from it.
    bool isSubclassOfClass(const VLMSDKClass& other) const;
    /// The class operations it offers.
    const Operations& operations() const { return operations_; }

private:
    std::string name_;
    const VLMSDKClass* superclass_;
    Factory factory_;
    std::vector<VLMSDKProperty> properties_;
    Operations operations_;
};

// ---- property factories -------------------------------------------------------------------------------

template <class T, class V, class G, class S>
VLMSDKProperty VLMSDKProperty::optionalValue(std::string name, VLMSDKPropertyKind kind, G getter, S setter) {
    return VLMSDKProperty(
        std::move(name), kind, nullptr,
        [getter](const VLMSDKRootObject& object) -> VLMSDKPropertyValue {
            const auto& value = std::invoke(getter, static_cast<const T&>(object));
            if (!value) return std::monostate{};
            return VLMSDKPropertyValue(std::in_place_type<V>, *value);
        },
        [setter](VLMSDKRootObject& object, VLMSDKPropertyValue&& value) {
            if (std::holds_alternative<std::monostate>(value)) {
                std::invoke(setter, static_cast<T&>(object), std::optional<V>());
                return true;
            }
            V* held = std::get_if<V>(&value);
            if (!held) return false;
            std::invoke(setter, static_cast<T&>(object), std::optional<V>(std::move(*held)));
            return true;
        });
}

template <class T, class G, class S>
VLMSDKProperty VLMSDKProperty::string(std::string name, G getter, S setter) {
    return optionalValue<T, std::string>(std::move(name), VLMSDKPropertyKind::String, getter, setter);
}

template <class T, class G, class S>
VLMSDKProperty VLMSDKProperty::number(std::string name, G getter, S setter) {
    return optionalValue<T, double>(std::move(name), VLMSDKPropertyKind::Number, getter, setter);
}

template <class T, class G, class S>
VLMSDKProperty VLMSDKProperty::date(std::string name, G getter, S setter) {
    return optionalValue<T, VLMSDKDate>(std::move(name), VLMSDKPropertyKind::Date, getter, setter);
}

template <class T, class G, class S>
VLMSDKProperty VLMSDKProperty::time(std::string name, G getter, S setter) {
    return optionalValue<T, VLMSDKTime>(std::move(name), VLMSDKPropertyKind::Time, getter, setter);
}

template <class T, class G, class S>
VLMSDKProperty VLMSDKProperty::boolean(std::string name, G getter, S setter) {
    return VLMSDKProperty(
        std::move(name), VLMSDKPropertyKind::Boolean, nullptr,
        [getter](const VLMSDKRootObject& object) -> VLMSDKPropertyValue {
            return static_cast<bool>(std::invoke(getter, static_cast<const T&>(object)));
        },
        [setter](VLMSDKRootObject& object, VLMSDKPropertyValue&& value) {
            const bool* held = std::get_if<bool>(&value);
            if (!held) return false;
            std::invoke(setter, static_cast<T&>(object), *held);
            return true;
        });
}

template <class T, class E, class G, class S>
VLMSDKProperty VLMSDKProperty::object(std::string name, G getter, S setter) {
    return VLMSDKProperty(
        std::move(name), VLMSDKPropertyKind::Object, &E::classDescriptor(),
        [getter](const VLMSDKRootObject& object) -> VLMSDKPropertyValue {
            std::shared_ptr<VLMSDKRootObject> held = std::invoke(getter, static_cast<const T&>(object));
            if (!held) return std::monostate{};
            return held;
        },
        [setter](VLMSDKRootObject& object, VLMSDKPropertyValue&& value) {
            if (std::holds_alternative<std::monostate>(value)) {
                std::invoke(setter, static_cast<T&>(object), std::shared_ptr<E>());
                return true;
            }
            auto* held = std::get_if<std::shared_ptr<VLMSDKRootObject>>(&value);
            if (!held) return false;
            auto typed = std::dynamic_pointer_cast<E>(*held);
            if (*held && !typed) return false;
            std::invoke(setter, static_cast<T&>(object), std::move(typed));
            return true;
        });
}

template <class T, class E, class G, class S>
VLMSDKProperty VLMSDKProperty::objectArray(std::string name, G getter, S setter) {
    return VLMSDKProperty(
        std::move(name), VLMSDKPropertyKind::ObjectArray, &E::classDescriptor(),
        [getter](const VLMSDKRootObject& object) -> VLMSDKPropertyValue {
            const auto& held = std::invoke(getter, static_cast<const T&>(object));
            return VLMSDKObjectArray(held.begin(), held.end());
        },
        [setter](VLMSDKRootObject& object, VLMSDKPropertyValue&& value) {
            std::vector<std::shared_ptr<E>> typed;
            if (std::holds_alternative<std::monostate>(value)) {
                std::invoke(setter, static_cast<T&>(object), std::move(typed));
                return true;
            }
            auto* held = std::get_if<VLMSDKObjectArray>(&value);
            if (!held) return false;
            typed.reserve(held->size());
            for (auto& element : *held) {
                auto cast = std::dynamic_pointer_cast<E>(std::move(element));
                if (!cast) return false;
                typed.push_back(std::move(cast));
            }
            std::invoke(setter, static_cast<T&>(object), std::move(typed));
            return true;
        });
}

VLMSDK_API_END
