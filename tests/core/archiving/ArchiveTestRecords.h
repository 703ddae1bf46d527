#pragma once

// Small archivable records of every property kind, independent of any kit's records.

#include <VLMSDKCoreKit/Archiving/VLMSDKCoder.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKCoding.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A nested record; `next` lets a test build a record that holds itself.
class Leaf : public VLMSDKRootObject, public VLMSDKCoding {
public:
    const std::optional<std::string>& label() const { return label_; }
    void setLabel(std::optional<std::string> label) { label_ = std::move(label); }
    const std::optional<double>& weight() const { return weight_; }
    void setWeight(std::optional<double> weight) { weight_ = weight; }
    const std::shared_ptr<Leaf>& next() const { return next_; }
    void setNext(std::shared_ptr<Leaf> next) { next_ = std::move(next); }

    static const std::vector<std::string>& encodingProperties() {
        static const std::vector<std::string> names = {"label", "weight", "next"};
        return names;
    }

    static const VLMSDKClass& classDescriptor() {
        // `next` is written out by hand: the property factory would ask for this very descriptor while it
        // is being made.
        static const VLMSDKClass descriptor(
            "Leaf", nullptr, [] { return std::make_shared<Leaf>(); },
            {VLMSDKProperty::string<Leaf>("label", &Leaf::label, &Leaf::setLabel),
             VLMSDKProperty::number<Leaf>("weight", &Leaf::weight, &Leaf::setWeight),
             VLMSDKProperty(
                 "next", VLMSDKPropertyKind::Object, &descriptor,
                 [](const VLMSDKRootObject& leaf) -> VLMSDKPropertyValue {
                     const auto& next = static_cast<const Leaf&>(leaf).next();
                     if (!next) return std::monostate{};
                     return std::shared_ptr<VLMSDKRootObject>(next);
                 },
                 [](VLMSDKRootObject& leaf, VLMSDKPropertyValue&& value) {
                     if (std::holds_alternative<std::monostate>(value)) {
                         static_cast<Leaf&>(leaf).setNext(nullptr);
                         return true;
                     }
                     auto* held = std::get_if<std::shared_ptr<VLMSDKRootObject>>(&value);
                     auto next = held ? std::dynamic_pointer_cast<Leaf>(*held) : nullptr;
                     if (!next) return false;
                     static_cast<Leaf&>(leaf).setNext(std::move(next));
                     return true;
                 })},
            {nullptr, nullptr, &Leaf::encodingProperties,
             [](VLMSDKKeyedUnarchiver& coder) { return VLMSDKCoder::objectOfClass(classDescriptor(), coder); }});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }

private:
    std::optional<std::string> label_;
    std::optional<double> weight_;
    std::shared_ptr<Leaf> next_;
};

/// The fields of the root test record.
struct TrunkFields {
    std::optional<std::string> name;
    std::optional<double> amount;
    bool flag = false;
    std::optional<VLMSDKDate> day;
    std::optional<VLMSDKTime> at;
    std::shared_ptr<Leaf> leaf;
    std::vector<std::shared_ptr<Leaf>> leaves;
    std::optional<std::string> note = "default note";
};

/// A root record of every kind. `Names` lists the archived properties, so that a test can make an
/// "older" class of the same name that archives fewer of them.
template <const char* ClassName, const std::vector<std::string>& (*Names)()>
class BasicTrunk : public VLMSDKRootObject, public VLMSDKCoding, public TrunkFields {
public:
    using Self = BasicTrunk;

    const std::optional<std::string>& getName() const { return name; }
    void putName(std::optional<std::string> value) { name = std::move(value); }
    const std::optional<double>& getAmount() const { return amount; }
    void putAmount(std::optional<double> value) { amount = value; }
    bool getFlag() const { return flag; }
    void putFlag(bool value) { flag = value; }
    const std::optional<VLMSDKDate>& getDay() const { return day; }
    void putDay(std::optional<VLMSDKDate> value) { day = value; }
    const std::optional<VLMSDKTime>& getAt() const { return at; }
    void putAt(std::optional<VLMSDKTime> value) { at = value; }
    const std::shared_ptr<Leaf>& getLeaf() const { return leaf; }
    void putLeaf(std::shared_ptr<Leaf> value) { leaf = std::move(value); }
    const std::vector<std::shared_ptr<Leaf>>& getLeaves() const { return leaves; }
    void putLeaves(std::vector<std::shared_ptr<Leaf>> value) { leaves = std::move(value); }
    const std::optional<std::string>& getNote() const { return note; }
    void putNote(std::optional<std::string> value) { note = std::move(value); }

    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor(
            ClassName, nullptr, [] { return std::make_shared<Self>(); },
            {VLMSDKProperty::string<Self>("name", &Self::getName, &Self::putName),
             VLMSDKProperty::number<Self>("amount", &Self::getAmount, &Self::putAmount),
             VLMSDKProperty::boolean<Self>("flag", &Self::getFlag, &Self::putFlag),
             VLMSDKProperty::date<Self>("day", &Self::getDay, &Self::putDay),
             VLMSDKProperty::time<Self>("at", &Self::getAt, &Self::putAt),
             VLMSDKProperty::object<Self, Leaf>("leaf", &Self::getLeaf, &Self::putLeaf),
             VLMSDKProperty::objectArray<Self, Leaf>("leaves", &Self::getLeaves, &Self::putLeaves),
             VLMSDKProperty::string<Self>("note", &Self::getNote, &Self::putNote)},
            {nullptr, nullptr, Names,
             [](VLMSDKKeyedUnarchiver& coder) { return VLMSDKCoder::objectOfClass(classDescriptor(), coder); }});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }
};

inline constexpr char kTrunkName[] = "Trunk";
inline constexpr char kOtherTrunkName[] = "OtherTrunk";

inline const std::vector<std::string>& allTrunkNames() {
    static const std::vector<std::string> names = {"name", "amount", "flag", "day", "at", "leaf", "leaves", "note"};
    return names;
}
inline const std::vector<std::string>& olderTrunkNames() {
    static const std::vector<std::string> names = {"name", "amount"};
    return names;
}

/// The record under test.
using Trunk = BasicTrunk<kTrunkName, &allTrunkNames>;
/// The same class as an older build knew it: it archives only `name` and `amount`.
using OlderTrunk = BasicTrunk<kTrunkName, &olderTrunkNames>;
/// Another class with the same properties.
using OtherTrunk = BasicTrunk<kOtherTrunkName, &allTrunkNames>;

/// A class named like Trunk whose `name` is a number: its archives hold a value of the wrong kind for Trunk.
class MistypedTrunk : public VLMSDKRootObject, public VLMSDKCoding {
public:
    const std::optional<double>& name() const { return name_; }
    void setName(std::optional<double> name) { name_ = name; }

    static const std::vector<std::string>& encodingProperties() {
        static const std::vector<std::string> names = {"name"};
        return names;
    }
    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor(
            kTrunkName, nullptr, [] { return std::make_shared<MistypedTrunk>(); },
            {VLMSDKProperty::number<MistypedTrunk>("name", &MistypedTrunk::name, &MistypedTrunk::setName)},
            {nullptr, nullptr, &MistypedTrunk::encodingProperties, nullptr});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }

private:
    std::optional<double> name_;
};

/// A described record that does not adopt VLMSDKCoding.
class Unarchivable : public VLMSDKRootObject {
public:
    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor("Unarchivable", nullptr, [] { return std::make_shared<Unarchivable>(); },
                                            {});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
};
