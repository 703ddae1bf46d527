#include <VLMSDKCoreKit/Archiving/VLMSDKKeyedUnarchiver.h>

#include "VLMSDKArchiveFormat.h"

#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include <algorithm>
#include <bit>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <vector>

using namespace vlmsdk::detail;

namespace {

struct Value {
    ArchiveTag tag = ArchiveTag::Absent;
    std::uint64_t bits = 0;           // Double, Bool, Date, Time (as the integer written)
    std::string_view text;            // String
    std::size_t record = 0;           // Record: index into the parsed records
    std::vector<std::size_t> records; // RecordArray
};

struct Entry {
    std::string_view key;
    Value value;
};

struct Record {
    std::string_view className;
    std::vector<Entry> entries;
};

// Reads within the bytes it was given, never past them.
class Reader {
public:
    Reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    std::size_t remaining() const { return size_ - at_; }

    template <class Integer>
    bool integer(Integer& value) {
        if (remaining() < sizeof(Integer)) return false;
        std::make_unsigned_t<Integer> bits = 0;
        for (std::size_t i = 0; i < sizeof(Integer); ++i) {
            bits = static_cast<decltype(bits)>(bits | (static_cast<decltype(bits)>(data_[at_ + i]) << (8 * i)));
        }
        at_ += sizeof(Integer);
        value = static_cast<Integer>(bits);
        return true;
    }

    bool string(std::string_view& text) {
        std::uint32_t length = 0;
        if (!integer(length) || length > remaining()) return false;
        text = std::string_view(reinterpret_cast<const char*>(data_ + at_), length);
        at_ += length;
        return true;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

const char* tagName(ArchiveTag tag) {
    switch (tag) {
    case ArchiveTag::Absent: return "nothing";
    case ArchiveTag::String: return "text";
    case ArchiveTag::Double: return "a number";
    case ArchiveTag::Bool: return "a boolean";
    case ArchiveTag::Date: return "a date";
    case ArchiveTag::Time: return "a time";
    case ArchiveTag::Record: return "a record";
    case ArchiveTag::RecordArray: return "an array of records";
    }
    return "an unknown value";
}

ArchiveTag tagForKind(VLMSDKPropertyKind kind) {
    switch (kind) {
    case VLMSDKPropertyKind::String: return ArchiveTag::String;
    case VLMSDKPropertyKind::Number: return ArchiveTag::Double;
    case VLMSDKPropertyKind::Boolean: return ArchiveTag::Bool;
    case VLMSDKPropertyKind::Date: return ArchiveTag::Date;
    case VLMSDKPropertyKind::Time: return ArchiveTag::Time;
    case VLMSDKPropertyKind::Object: return ArchiveTag::Record;
    case VLMSDKPropertyKind::ObjectArray: return ArchiveTag::RecordArray;
    }
    return ArchiveTag::Absent;
}

}  // namespace

struct VLMSDKKeyedUnarchiver::State {
    std::vector<std::uint8_t> data;  // owned, so the views below stay valid
    std::vector<Record> records;     // records[0] is the root; children come after their parents
    const Record* current = nullptr;
    VLMErrorPtr error;

    void fail(std::string message) {
        if (!error) error = archiveError(std::move(message));
    }

    // One record and, recursively, the records inside it; its index, or nothing when the bytes are bad.
    std::optional<std::size_t> parseRecord(Reader& reader, int depth) {
        if (depth > kArchiveMaxDepth) return std::nullopt;
        Record record;
        std::uint32_t count = 0;
        if (!reader.string(record.className) || record.className.empty() || !reader.integer(count)) return std::nullopt;
        const std::size_t index = records.size();
        records.push_back(std::move(record));
        // No reserve by `count`: the entries must really be there, so memory follows the bytes read.
        for (std::uint32_t i = 0; i < count; ++i) {
            Entry entry;
            std::uint8_t tag = 0;
            if (!reader.string(entry.key) || !reader.integer(tag)) return std::nullopt;
            if (tag > static_cast<std::uint8_t>(ArchiveTag::RecordArray)) return std::nullopt;
            entry.value.tag = static_cast<ArchiveTag>(tag);
            if (!parseValue(reader, entry.value, depth)) return std::nullopt;
            records[index].entries.push_back(std::move(entry));
        }
        return index;
    }

    bool parseValue(Reader& reader, Value& value, int depth) {
        switch (value.tag) {
        case ArchiveTag::Absent: return true;
        case ArchiveTag::String: return reader.string(value.text);
        case ArchiveTag::Double: return reader.integer(value.bits);
        case ArchiveTag::Bool: {
            std::uint8_t flag = 2;
            value.bits = 0;
            if (!reader.integer(flag) || flag > 1) return false;
            value.bits = flag;
            return true;
        }
        case ArchiveTag::Date: {
            std::int64_t days = 0;
            using Rep = VLMSDKDate::rep;
            if (!reader.integer(days) || days < std::numeric_limits<Rep>::min() ||
                days > std::numeric_limits<Rep>::max())
                return false;
            value.bits = static_cast<std::uint64_t>(days);
            return true;
        }
        case ArchiveTag::Time: {
            std::int64_t seconds = 0;
            if (!reader.integer(seconds)) return false;
            value.bits = static_cast<std::uint64_t>(seconds);
            return true;
        }
        case ArchiveTag::Record: {
            const auto child = parseRecord(reader, depth + 1);
            if (!child) return false;
            value.record = *child;
            return true;
        }
        case ArchiveTag::RecordArray: {
            std::uint32_t count = 0;
            if (!reader.integer(count)) return false;
            for (std::uint32_t i = 0; i < count; ++i) {
                const auto child = parseRecord(reader, depth + 1);
                if (!child) return false;
                value.records.push_back(*child);
            }
            return true;
        }
        }
        return false;
    }

    void parse(std::span<const std::uint8_t> bytes) {
        if (bytes.size() < kArchiveHeaderSize + kArchiveTrailerSize) {
            fail("the archive is too short (" + std::to_string(bytes.size()) + " bytes) to hold a record");
            return;
        }
        if (!std::equal(kArchiveMagic.begin(), kArchiveMagic.end(), bytes.begin())) {
            fail("the bytes are not a keyed archive (no archive signature)");
            return;
        }
        Reader header(bytes.data() + kArchiveMagic.size(), kArchiveHeaderSize - kArchiveMagic.size());
        std::uint16_t version = 0;
        std::uint16_t reserved = 0;
        std::uint32_t bodySize = 0;
        header.integer(version);
        header.integer(reserved);
        header.integer(bodySize);
        if (version != kArchiveFormatVersion) {
            fail("the archive has format version " + std::to_string(version) + "; this build reads version " +
                 std::to_string(kArchiveFormatVersion));
            return;
        }
        const std::size_t actualBody = bytes.size() - kArchiveHeaderSize - kArchiveTrailerSize;
        if (reserved != 0 || bodySize != actualBody) {
            fail("the archive is truncated or damaged: its header announces " + std::to_string(bodySize) +
                 " bytes of records, " + std::to_string(actualBody) + " are there");
            return;
        }
        const std::size_t checked = bytes.size() - kArchiveTrailerSize;
        Reader trailer(bytes.data() + checked, kArchiveTrailerSize);
        std::uint32_t checksum = 0;
        trailer.integer(checksum);
        if (checksum != crc32(bytes.data(), checked)) {
            fail("the archive is damaged: its checksum does not match its contents");
            return;
        }
        data.assign(bytes.begin(), bytes.end());
        Reader body(data.data() + kArchiveHeaderSize, actualBody);
        const auto root = parseRecord(body, 0);
        if (!root || body.remaining() != 0) {
            records.clear();
            fail("the archive is damaged: its records are malformed");
        }
    }

    const Entry* find(std::string_view key) const {
        if (!current) return nullptr;
        // The last value written under a key wins.
        for (auto entry = current->entries.rbegin(); entry != current->entries.rend(); ++entry) {
            if (entry->key == key) return &*entry;
        }
        return nullptr;
    }

    std::shared_ptr<VLMSDKRootObject> restore(const Record& record, const VLMSDKClass& objectClass,
                                              VLMSDKKeyedUnarchiver& coder) {
        if (!objectClass.operations().initWithCoder) {
            fail(objectClass.name() + " cannot be unarchived: it does not adopt VLMSDKCoding");
            return nullptr;
        }
        // The nested record is the current one while its class restores itself, even if that throws.
        struct Scope {
            const Record*& slot;
            const Record* outer;
            ~Scope() { slot = outer; }
        } scope{current, current};
        current = &record;
        auto object = objectClass.operations().initWithCoder(coder);
        if (error) return nullptr;
        if (!object) {
            fail(objectClass.name() + " could not be restored from the archive");
            return nullptr;
        }
        if (!object->objectClass().isSubclassOfClass(objectClass)) {
            fail(objectClass.name() + " was restored as a " + object->objectClass().name());
            return nullptr;
        }
        return object;
    }
};

VLMSDKKeyedUnarchiver::VLMSDKKeyedUnarchiver(std::span<const std::uint8_t> data) : state_(std::make_unique<State>()) {
    try {
        state_->parse(data);
    } catch (const std::exception& exception) {
        state_->records.clear();
        state_->fail(std::string("the archive could not be read: ") + exception.what());
    }
}

VLMSDKKeyedUnarchiver::~VLMSDKKeyedUnarchiver() = default;

const VLMErrorPtr& VLMSDKKeyedUnarchiver::error() const { return state_->error; }

void VLMSDKKeyedUnarchiver::failWithError(VLMErrorPtr error) {
    if (!state_->error) state_->error = std::move(error);
}

bool VLMSDKKeyedUnarchiver::containsValueForKey(std::string_view key) const {
    return !state_->error && state_->find(key) != nullptr;
}

VLMSDKPropertyValue VLMSDKKeyedUnarchiver::decodeValue(std::string_view key, VLMSDKPropertyKind kind,
                                                       const VLMSDKClass* elementClass) {
    try {
        return decodeChecked(key, kind, elementClass);
    } catch (const std::exception& exception) {
        state_->fail(std::string("unarchiving stopped: ") + exception.what());
    }
    return std::monostate{};
}

VLMSDKPropertyValue VLMSDKKeyedUnarchiver::decodeChecked(std::string_view key, VLMSDKPropertyKind kind,
                                                         const VLMSDKClass* elementClass) {
    State& s = *state_;
    if (s.error) return std::monostate{};
    const Entry* entry = s.find(key);
    if (!entry || entry->value.tag == ArchiveTag::Absent) return std::monostate{};
    const Value& value = entry->value;
    if (value.tag != tagForKind(kind)) {
        s.fail("the archive holds " + std::string(tagName(value.tag)) + " under \"" + std::string(key) + "\" of " +
               std::string(s.current->className) + ", not " + tagName(tagForKind(kind)));
        return std::monostate{};
    }
    if ((kind == VLMSDKPropertyKind::Object || kind == VLMSDKPropertyKind::ObjectArray) && !elementClass) {
        s.fail("no record class was given to restore \"" + std::string(key) + "\"");
        return std::monostate{};
    }
    switch (value.tag) {
    case ArchiveTag::String: return std::string(value.text);
    case ArchiveTag::Double: return std::bit_cast<double>(value.bits);
    case ArchiveTag::Bool: return value.bits != 0;
    case ArchiveTag::Date:
        return VLMSDKDate(std::chrono::days(static_cast<VLMSDKDate::rep>(static_cast<std::int64_t>(value.bits))));
    case ArchiveTag::Time:
        return VLMSDKTime(std::chrono::seconds(static_cast<std::int64_t>(value.bits)));
    case ArchiveTag::Record: {
        auto object = s.restore(s.records[value.record], *elementClass, *this);
        if (!object) return std::monostate{};
        return object;
    }
    case ArchiveTag::RecordArray: {
        VLMSDKObjectArray objects;
        objects.reserve(value.records.size());
        for (std::size_t index : value.records) {
            auto object = s.restore(s.records[index], *elementClass, *this);
            if (!object) return std::monostate{};
            objects.push_back(std::move(object));
        }
        return objects;
    }
    case ArchiveTag::Absent: break;
    }
    return std::monostate{};
}

std::shared_ptr<VLMSDKRootObject> VLMSDKKeyedUnarchiver::decodeRootObject(const VLMSDKClass& objectClass) {
    State& s = *state_;
    if (s.error) return nullptr;
    if (s.records.empty()) {
        s.fail("the archive holds no record");
        return nullptr;
    }
    const Record& root = s.records.front();
    if (root.className != objectClass.name()) {
        s.fail("the archive holds a " + std::string(root.className) + ", not a " + objectClass.name());
        return nullptr;
    }
    try {
        return s.restore(root, objectClass, *this);
    } catch (const std::exception& exception) {
        s.fail(std::string("unarchiving stopped: ") + exception.what());
    }
    return nullptr;
}
