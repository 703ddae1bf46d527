#pragma once

// Small records of every property kind for the core's mapping and archiving tests, independent of any kit.

#include <VLMSDKCoreKit/Archiving/VLMSDKCoder.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKCoding.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKObject.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A setter of a public field, for the property factories.
template <class C, class V>
auto setter(V C::*field) {
    return [field](C& record, V value) { record.*field = std::move(value); };
}

/// A nested record, mapped, serialized and archived; `next` lets it hold another of its class.
class Leaf : public VLMSDKRootObject, public VLMSDKCoding {
public:
    std::optional<std::string> label;
    std::optional<double> count;
    std::shared_ptr<Leaf> next;

    static const std::vector<std::string>& encodingProperties() {
        static const std::vector<std::string> names = {"label", "count", "next"};
        return names;
    }
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping() {
        static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
            auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
            built->mapJSONKeysToThePropertyKeys({{"label", "label"}, {"count", "count"}, {"next", "next"}});
            return built;
        }();
        return mapping;
    }
    static const VLMSDKClass& classDescriptor() {
        // `next` by hand: the property factory would ask for this very descriptor while it is being made.
        static const VLMSDKClass descriptor(
            "Leaf", nullptr, [] { return std::make_shared<Leaf>(); },
            {VLMSDKProperty::string<Leaf>("label", &Leaf::label, setter(&Leaf::label)),
             VLMSDKProperty::number<Leaf>("count", &Leaf::count, setter(&Leaf::count)),
             VLMSDKProperty(
                 "next", VLMSDKPropertyKind::Object, &descriptor,
                 [](const VLMSDKRootObject& leaf) -> VLMSDKPropertyValue {
                     if (const auto& next = static_cast<const Leaf&>(leaf).next) return std::shared_ptr<VLMSDKRootObject>(next);
                     return std::monostate{};
                 },
                 [](VLMSDKRootObject& leaf, VLMSDKPropertyValue&& value) {
                     auto* held = std::get_if<std::shared_ptr<VLMSDKRootObject>>(&value);
                     auto next = held ? std::dynamic_pointer_cast<Leaf>(*held) : nullptr;
                     if (!next && !std::holds_alternative<std::monostate>(value)) return false;
                     static_cast<Leaf&>(leaf).next = std::move(next);
                     return true;
                 })},
            {&Leaf::objectMapping, &Leaf::objectMapping, &Leaf::encodingProperties,
             [](VLMSDKKeyedUnarchiver& coder) { return VLMSDKCoder::objectOfClass(classDescriptor(), coder); }});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }
};

/// A record of a class that offers neither mapping nor archiving.
class Bare : public VLMSDKRootObject {
public:
    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor("Bare", nullptr, [] { return std::make_shared<Bare>(); }, {});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
};

/// A record of every kind, with an identifier; `title` and `open` have non-empty defaults.
class Ledger : public VLMSDKObject, public VLMSDKCoding {
public:
    std::optional<std::string> title = "untitled";
    std::optional<double> total;
    bool open = true;
    std::optional<VLMSDKDate> day;
    std::optional<VLMSDKTime> stamp;
    std::shared_ptr<Leaf> lead;
    std::vector<std::shared_ptr<Leaf>> leaves;
    std::vector<std::shared_ptr<Bare>> bares;

    static const std::vector<std::string>& encodingProperties() {
        static const std::vector<std::string> names = {"title", "total", "open", "day", "stamp", "lead", "leaves"};
        return names;
    }
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping() {
        static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
            auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
            addVelmoraIDMapping(*built);
            built->mapJSONKeysToThePropertyKeys(
                {{"title", "title"}, {"total", "total"}, {"is_open", "open"}, {"lead", "lead"}});
            built->mapJSONKey("day", "day", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
            built->mapJSONKey("stamp", "stamp", VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock());
            built->mapHasManyRelationshipOfClass(Leaf::classDescriptor(), "leaves", "leaves");
            built->mapHasManyRelationshipOfClass(Bare::classDescriptor(), "bares", "bares");
            return built;
        }();
        return mapping;
    }
    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor(
            "Ledger", &VLMSDKObject::classDescriptor(), [] { return std::make_shared<Ledger>(); },
            {VLMSDKProperty::string<Ledger>("title", &Ledger::title, setter(&Ledger::title)),
             VLMSDKProperty::number<Ledger>("total", &Ledger::total, setter(&Ledger::total)),
             VLMSDKProperty::boolean<Ledger>("open", &Ledger::open, setter(&Ledger::open)),
             VLMSDKProperty::date<Ledger>("day", &Ledger::day, setter(&Ledger::day)),
             VLMSDKProperty::time<Ledger>("stamp", &Ledger::stamp, setter(&Ledger::stamp)),
             VLMSDKProperty::object<Ledger, Leaf>("lead", &Ledger::lead, setter(&Ledger::lead)),
             VLMSDKProperty::objectArray<Ledger, Leaf>("leaves", &Ledger::leaves, setter(&Ledger::leaves)),
             VLMSDKProperty::objectArray<Ledger, Bare>("bares", &Ledger::bares, setter(&Ledger::bares))},
            {&Ledger::objectMapping, nullptr, &Ledger::encodingProperties,
             [](VLMSDKKeyedUnarchiver& coder) { return VLMSDKCoder::objectOfClass(classDescriptor(), coder); }});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }
};
