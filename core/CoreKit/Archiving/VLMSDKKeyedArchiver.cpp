#include <VLMSDKCoreKit/Archiving/VLMSDKKeyedArchiver.h>

#include "VLMSDKArchiveFormat.h"

#include <VLMSDKCoreKit/Archiving/VLMSDKCoding.h>
#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include <bit>
#include <exception>
#include <limits>

using namespace vlmsdk::detail;

struct VLMSDKKeyedArchiver::State {
    struct OpenRecord {
        std::size_t countOffset;
        std::uint32_t count;
    };

    std::vector<std::uint8_t> bytes;
    std::vector<OpenRecord> open;  // the record being written is the last one
    VLMErrorPtr error;

    void fail(std::string message) {
        if (!error) error = archiveError(std::move(message));
    }

    template <class Integer>
    void writeInteger(Integer value) {
        auto bits = static_cast<std::make_unsigned_t<Integer>>(value);
        for (std::size_t i = 0; i < sizeof(Integer); ++i) {
            bytes.push_back(static_cast<std::uint8_t>(bits & 0xFFu));
            bits = static_cast<decltype(bits)>(bits >> 8);
        }
    }

    void patch(std::size_t offset, std::uint32_t value) {
        for (std::size_t i = 0; i < 4; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }

    void writeString(std::string_view text) {
        if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
            fail("a text is too long to archive");
            return;
        }
        writeInteger(static_cast<std::uint32_t>(text.size()));
        bytes.insert(bytes.end(), text.begin(), text.end());
    }

    void writeTag(ArchiveTag tag) { bytes.push_back(static_cast<std::uint8_t>(tag)); }
};

VLMSDKKeyedArchiver::VLMSDKKeyedArchiver() : state_(std::make_unique<State>()) {}

VLMSDKKeyedArchiver::~VLMSDKKeyedArchiver() = default;

const VLMErrorPtr& VLMSDKKeyedArchiver::error() const { return state_->error; }

bool VLMSDKKeyedArchiver::encodeRecord(const VLMSDKRootObject& object) {
    State& s = *state_;
    const auto* coding = dynamic_cast<const VLMSDKCoding*>(&object);
    if (!coding) {
        s.fail(object.objectClass().name() + " cannot be archived: it does not adopt VLMSDKCoding");
        return false;
    }
    if (s.open.size() >= static_cast<std::size_t>(kArchiveMaxDepth)) {
        s.fail("records are nested more than " + std::to_string(kArchiveMaxDepth) + " deep (a record holding itself?)");
        return false;
    }
    s.writeString(object.objectClass().name());
    s.open.push_back({s.bytes.size(), 0});
    s.writeInteger(std::uint32_t{0});
    coding->encodeWithCoder(*this);
    const State::OpenRecord done = s.open.back();
    s.open.pop_back();
    s.patch(done.countOffset, done.count);
    return !s.error;
}

void VLMSDKKeyedArchiver::encodeValue(const VLMSDKPropertyValue& value, std::string_view key) {
    State& s = *state_;
    if (s.open.empty()) {
        s.fail("encodeValue was called outside a record being archived");
        return;
    }
    if (s.error) return;
    s.writeString(key);
    ++s.open.back().count;
    std::visit(
        [&](const auto& held) {
            using T = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                s.writeTag(ArchiveTag::Absent);
            } else if constexpr (std::is_same_v<T, std::string>) {
                s.writeTag(ArchiveTag::String);
                s.writeString(held);
            } else if constexpr (std::is_same_v<T, double>) {
                s.writeTag(ArchiveTag::Double);
                s.writeInteger(std::bit_cast<std::uint64_t>(held));
            } else if constexpr (std::is_same_v<T, bool>) {
                s.writeTag(ArchiveTag::Bool);
                s.bytes.push_back(held ? 1 : 0);
            } else if constexpr (std::is_same_v<T, VLMSDKDate>) {
                s.writeTag(ArchiveTag::Date);
                s.writeInteger(static_cast<std::int64_t>(held.time_since_epoch().count()));
            } else if constexpr (std::is_same_v<T, VLMSDKTime>) {
                s.writeTag(ArchiveTag::Time);
                s.writeInteger(static_cast<std::int64_t>(held.time_since_epoch().count()));
            } else if constexpr (std::is_same_v<T, std::shared_ptr<VLMSDKRootObject>>) {
                if (!held) {
                    s.writeTag(ArchiveTag::Absent);
                } else {
                    s.writeTag(ArchiveTag::Record);
                    encodeRecord(*held);
                }
            } else {
                static_assert(std::is_same_v<T, VLMSDKObjectArray>);
                s.writeTag(ArchiveTag::RecordArray);
                const std::size_t countOffset = s.bytes.size();
                s.writeInteger(std::uint32_t{0});
                std::uint32_t count = 0;
                for (const auto& element : held) {
                    if (!element) continue;  // arrays of records hold no nulls; a stray one is dropped
                    if (!encodeRecord(*element)) return;
                    ++count;
                }
                s.patch(countOffset, count);
            }
        },
        value);
}

std::vector<std::uint8_t> VLMSDKKeyedArchiver::archiveRootObject(const VLMSDKRootObject& object) {
    State& s = *state_;
    if (!s.open.empty()) {
        s.fail("archiveRootObject was called while a record was being archived");
        return {};
    }
    s = State{};
    try {
        s.bytes.insert(s.bytes.end(), kArchiveMagic.begin(), kArchiveMagic.end());
        s.writeInteger(kArchiveFormatVersion);
        s.writeInteger(std::uint16_t{0});
        s.writeInteger(std::uint32_t{0});
        if (!encodeRecord(object)) return {};
        const std::size_t bodySize = s.bytes.size() - kArchiveHeaderSize;
        if (bodySize > std::numeric_limits<std::uint32_t>::max()) {
            s.fail("the archive would be larger than 4 GiB");
            return {};
        }
        s.patch(8, static_cast<std::uint32_t>(bodySize));
        s.writeInteger(crc32(s.bytes.data(), s.bytes.size()));
        return std::move(s.bytes);
    } catch (const std::exception& exception) {
        s.open.clear();
        s.fail(std::string("archiving stopped: ") + exception.what());
    } catch (...) {
        s.open.clear();
        s.fail("archiving stopped by an unknown exception");
    }
    return {};
}
