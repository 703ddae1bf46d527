#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

VLMSDK_API_BEGIN

/// A declarative description of how one JSON object becomes one record of a class: which JSON key fills
/// which property, through which transform. Built once, then only read (by any number of threads).
///
/// Property names are looked up in the class when an entry is added. A name the class lacks, a transformed
/// entry without a transform, or a has-many entry whose property cannot hold records of the given class is
/// a programmer error: it is reported through VLMSDKAsserts and the entry is skipped.
class VLMSDKObjectMapping {
public:
    /// How an entry fills its property.
    enum class EntryKind { Plain, Transformed, HasMany };

    /// \var EntryKind::Plain
    /// The JSON value as it is.
    /// \var EntryKind::Transformed
    /// The JSON value through the entry's transform.
    /// \var EntryKind::HasMany
    /// An array of JSON objects, each mapped into a record of the entry's element class.

    /// One entry: which JSON key fills which property, and how.
    struct Entry {
        /// How the property is filled.
        EntryKind kind;
        /// The key in the JSON object.
        std::string jsonKey;
        const VLMSDKProperty* property;            ///< resolved in the mapped class when the entry is added
        VLMSDKAttributeMappingBlock mappingBlock;  ///< Transformed entries
        const VLMSDKClass* elementClass;           ///< HasMany entries
        /// Set when the entry is added, for Transformed entries whose transform is one of the core's own that
        /// reads only text: its text form (the mapper then applies it to a reply's text in place), and whether
        /// it hands text back as it is (the mapper then stores the text without calling it).
        ///@{
        VLMSDKMappedValue (*textForm)(std::string_view text) = nullptr;
        bool keepsText = false;
        ///@}
    };

    /// A new, empty description for records of `objectClass`.
    static std::shared_ptr<VLMSDKObjectMapping> mappingForClass(const VLMSDKClass& objectClass);

    /// An empty description for records of `objectClass`; `mappingForClass` makes it shared.
    explicit VLMSDKObjectMapping(const VLMSDKClass& objectClass);

    /// Adds one plain entry per pair (JSON key -> property name): the JSON value is stored unchanged.
    void mapJSONKeysToThePropertyKeys(const std::map<std::string, std::string>& jsonKeysToPropertyKeys);

    /// Adds one entry whose JSON value goes through `mappingBlock` before it is stored.
    void mapJSONKey(const std::string& key, const std::string& toTheProperyName,
                    VLMSDKAttributeMappingBlock mappingBlock);

    /// Adds one entry whose JSON value is an array of objects, each mapped into a record of `objectClass`
    /// with that class's own object mapping; the property receives the records in JSON order.
    void mapHasManyRelationshipOfClass(const VLMSDKClass& objectClass, const std::string& fromJSONKey,
                                       const std::string& toThePropertyName);

    /// The class of the records this description makes.
    const VLMSDKClass& objectClass() const { return *objectClass_; }
    /// The entries, in the order they were added (skipped ones left out).
    const std::vector<Entry>& entries() const { return entries_; }

    /// The positions in `entries()` ordered by the JSON key's length, then its bytes (entries of one key in
    /// the order they were added), for the mapper to find a key's entries quickly.
    const std::vector<std::size_t>& entriesByKey() const { return entriesByKey_; }

private:
    const VLMSDKProperty* resolve(const std::string& propertyName) const;
    void add(Entry entry);

    const VLMSDKClass* objectClass_;
    std::vector<Entry> entries_;
    std::vector<std::size_t> entriesByKey_;
};

VLMSDK_API_END
