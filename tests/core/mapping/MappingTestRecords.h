#pragma once

// Small records that exercise every property kind the mapper knows, independent of any kit's records.

#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <VLMSDKCoreKit/VLMSDKObject.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A child record with its own object and serialization mappings.
class Tally : public VLMSDKRootObject {
public:
    const std::optional<std::string>& label() const { return label_; }
    void setLabel(std::optional<std::string> label) { label_ = std::move(label); }
    const std::optional<double>& count() const { return count_; }
    void setCount(std::optional<double> count) { count_ = count; }

    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor(
            "Tally", nullptr, [] { return std::make_shared<Tally>(); },
            {VLMSDKProperty::string<Tally>("label", &Tally::label, &Tally::setLabel),
             VLMSDKProperty::number<Tally>("count", &Tally::count, &Tally::setCount)},
            {&Tally::objectMapping, &Tally::objectMapping, nullptr, nullptr});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }

    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping() {
        static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
            auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
            built->mapJSONKeysToThePropertyKeys({{"label", "label"}, {"count", "count"}});
            return built;
        }();
        return mapping;
    }

private:
    std::optional<std::string> label_;
    std::optional<double> count_;
};

/// A record of a class that offers no mapping at all.
class Orphan : public VLMSDKRootObject {
public:
    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor("Orphan", nullptr, [] { return std::make_shared<Orphan>(); }, {});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }
};

/// A record of every kind, derived from VLMSDKObject; `title` and `open` have non-empty defaults.
class Ledger : public VLMSDKObject {
public:
    const std::optional<std::string>& title() const { return title_; }
    void setTitle(std::optional<std::string> title) { title_ = std::move(title); }
    const std::optional<double>& total() const { return total_; }
    void setTotal(std::optional<double> total) { total_ = total; }
    bool isOpen() const { return open_; }
    void setOpen(bool open) { open_ = open; }
    const std::optional<VLMSDKDate>& day() const { return day_; }
    void setDay(std::optional<VLMSDKDate> day) { day_ = day; }
    const std::optional<VLMSDKTime>& stamp() const { return stamp_; }
    void setStamp(std::optional<VLMSDKTime> stamp) { stamp_ = stamp; }
    const std::shared_ptr<Tally>& lead() const { return lead_; }
    void setLead(std::shared_ptr<Tally> lead) { lead_ = std::move(lead); }
    const std::vector<std::shared_ptr<Tally>>& tallies() const { return tallies_; }
    void setTallies(std::vector<std::shared_ptr<Tally>> tallies) { tallies_ = std::move(tallies); }
    const std::vector<std::shared_ptr<Orphan>>& orphans() const { return orphans_; }
    void setOrphans(std::vector<std::shared_ptr<Orphan>> orphans) { orphans_ = std::move(orphans); }

    static const VLMSDKClass& classDescriptor() {
        static const VLMSDKClass descriptor(
            "Ledger", &VLMSDKObject::classDescriptor(), [] { return std::make_shared<Ledger>(); },
            {VLMSDKProperty::string<Ledger>("title", &Ledger::title, &Ledger::setTitle),
             VLMSDKProperty::number<Ledger>("total", &Ledger::total, &Ledger::setTotal),
             VLMSDKProperty::boolean<Ledger>("open", &Ledger::isOpen, &Ledger::setOpen),
             VLMSDKProperty::date<Ledger>("day", &Ledger::day, &Ledger::setDay),
             VLMSDKProperty::time<Ledger>("stamp", &Ledger::stamp, &Ledger::setStamp),
             VLMSDKProperty::object<Ledger, Tally>("lead", &Ledger::lead, &Ledger::setLead),
             VLMSDKProperty::objectArray<Ledger, Tally>("tallies", &Ledger::tallies, &Ledger::setTallies),
             VLMSDKProperty::objectArray<Ledger, Orphan>("orphans", &Ledger::orphans, &Ledger::setOrphans)},
            {&Ledger::objectMapping, nullptr, nullptr, nullptr});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }

    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping() {
        static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
            auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
            addVelmoraIDMapping(*built);
            built->mapJSONKeysToThePropertyKeys(
                {{"title", "title"}, {"total", "total"}, {"is_open", "open"}, {"lead", "lead"}});
            built->mapJSONKey("day", "day", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
            built->mapJSONKey("stamp", "stamp", VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock());
            built->mapHasManyRelationshipOfClass(Tally::classDescriptor(), "tallies", "tallies");
            return built;
        }();
        return mapping;
    }

private:
    std::optional<std::string> title_ = "untitled";
    std::optional<double> total_;
    bool open_ = true;
    std::optional<VLMSDKDate> day_;
    std::optional<VLMSDKTime> stamp_;
    std::shared_ptr<Tally> lead_;
    std::vector<std::shared_ptr<Tally>> tallies_;
    std::vector<std::shared_ptr<Orphan>> orphans_;
};

/// A record that can hold another of its own class, for nesting depth.
class Link : public VLMSDKRootObject {
public:
    const std::shared_ptr<Link>& next() const { return next_; }
    void setNext(std::shared_ptr<Link> next) { next_ = std::move(next); }

    static const VLMSDKClass& classDescriptor() {
        // Written out by hand: the property factory would ask for this very descriptor while it is made.
        static const VLMSDKClass descriptor(
            "Link", nullptr, [] { return std::make_shared<Link>(); },
            {VLMSDKProperty(
                "next", VLMSDKPropertyKind::Object, &descriptor,
                [](const VLMSDKRootObject& link) -> VLMSDKPropertyValue {
                    const auto& next = static_cast<const Link&>(link).next();
                    if (!next) return std::monostate{};
                    return std::shared_ptr<VLMSDKRootObject>(next);
                },
                [](VLMSDKRootObject& link, VLMSDKPropertyValue&& value) {
                    auto* held = std::get_if<std::shared_ptr<VLMSDKRootObject>>(&value);
                    if (!held) return false;
                    auto next = std::dynamic_pointer_cast<Link>(*held);
                    if (!next) return false;
                    static_cast<Link&>(link).setNext(std::move(next));
                    return true;
                })},
            {&Link::objectMapping, nullptr, nullptr, nullptr});
        return descriptor;
    }
    const VLMSDKClass& objectClass() const override { return classDescriptor(); }

    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping() {
        static const std::shared_ptr<const VLMSDKObjectMapping> mapping = [] {
            auto built = VLMSDKObjectMapping::mappingForClass(classDescriptor());
            built->mapJSONKeysToThePropertyKeys({{"next", "next"}});
            return built;
        }();
        return mapping;
    }

private:
    std::shared_ptr<Link> next_;
};
