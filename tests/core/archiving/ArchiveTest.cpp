#include "ArchiveTestRecords.h"
#include "RecordingAssertionHandler.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

using namespace std::chrono;
using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<Leaf> leaf(std::optional<std::string> label, std::optional<double> weight) {
    auto made = std::make_shared<Leaf>();
    made->setLabel(std::move(label));
    made->setWeight(weight);
    return made;
}

std::shared_ptr<Trunk> fullTrunk() {
    auto trunk = std::make_shared<Trunk>();
    trunk->name = "Front desk";
    trunk->amount = 1234.5;
    trunk->flag = true;
    trunk->day = sys_days(2026y / November / 21);
    trunk->at = sys_days(2026y / November / 21) + 10h + 4min + 5s;
    trunk->leaf = leaf("single", -0.0);
    trunk->leaves = {leaf("a", 1), leaf(std::nullopt, 2.5), leaf("c", std::nullopt)};
    trunk->note = std::nullopt;
    return trunk;
}

Bytes archive(const VLMSDKRootObject& object) {
    VLMErrorPtr error;
    Bytes bytes = VLMSDKCoder::archivedDataWithRootObject(object, &error);
    EXPECT_EQ(error, nullptr) << error->developerMessage();
    EXPECT_FALSE(bytes.empty());
    return bytes;
}

std::shared_ptr<Trunk> unarchive(const Bytes& bytes, VLMErrorPtr* error = nullptr) {
    return VLMSDKCoder::unarchivedObjectOfClass<Trunk>(bytes, error);
}

bool sameBits(const std::optional<double>& a, const std::optional<double>& b) {
    if (!a || !b) return !a && !b;
    return std::bit_cast<std::uint64_t>(*a) == std::bit_cast<std::uint64_t>(*b);
}

void expectArchiveError(const VLMErrorPtr& error, const std::string& mention = "") {
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), kVLMSDKArchiveErrorDomain);
    EXPECT_EQ(error->code(), VLMErrorCode::Archive);
    EXPECT_NE(error->developerMessage().find(mention), std::string::npos) << error->developerMessage();
}

// An independent CRC-32, to write archives by hand.
std::uint32_t crc32(const Bytes& bytes, std::size_t size) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

// Writes archive bytes by hand, in the archive's own layout, with a correct header and checksum.
class RawArchive {
public:
    RawArchive& u8(std::uint8_t value) {
        body_.push_back(value);
        return *this;
    }
    RawArchive& u32(std::uint32_t value) {
        for (int i = 0; i < 4; ++i) body_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        return *this;
    }
    RawArchive& u64(std::uint64_t value) {
        for (int i = 0; i < 8; ++i) body_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        return *this;
    }
    RawArchive& text(const std::string& value) {
        u32(static_cast<std::uint32_t>(value.size()));
        body_.insert(body_.end(), value.begin(), value.end());
        return *this;
    }
    Bytes finish(std::uint16_t version = 1) const {
        Bytes bytes = {'V', 'L', 'M', 'A'};
        bytes.push_back(static_cast<std::uint8_t>(version));
        bytes.push_back(static_cast<std::uint8_t>(version >> 8));
        bytes.insert(bytes.end(), {0, 0});
        const auto size = static_cast<std::uint32_t>(body_.size());
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(size >> (8 * i)));
        bytes.insert(bytes.end(), body_.begin(), body_.end());
        const std::uint32_t crc = crc32(bytes, bytes.size());
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(crc >> (8 * i)));
        return bytes;
    }

private:
    Bytes body_;
};

enum Tag : std::uint8_t { Absent, String, Double, Bool, Date, Time, Record, RecordArray };

}  // namespace

TEST(VLMSDKCoder, RestoresEveryKindOfValueExactly) {
    const auto original = fullTrunk();
    const Bytes bytes = archive(*original);
    VLMErrorPtr error;
    const auto restored = unarchive(bytes, &error);
    ASSERT_NE(restored, nullptr) << error->developerMessage();
    EXPECT_NE(restored, original);
    EXPECT_EQ(restored->name, "Front desk");
    EXPECT_EQ(restored->amount, 1234.5);
    EXPECT_TRUE(restored->flag);
    EXPECT_EQ(restored->day, original->day);
    EXPECT_EQ(restored->at, original->at);
    EXPECT_EQ(restored->note, std::nullopt) << "an absent value written over a default stays absent";
    ASSERT_NE(restored->leaf, nullptr);
    EXPECT_EQ(restored->leaf->label(), "single");
    EXPECT_TRUE(sameBits(restored->leaf->weight(), -0.0));
    ASSERT_EQ(restored->leaves.size(), 3u);
    EXPECT_EQ(restored->leaves[0]->label(), "a");
    EXPECT_EQ(restored->leaves[0]->weight(), 1);
    EXPECT_EQ(restored->leaves[1]->label(), std::nullopt);
    EXPECT_EQ(restored->leaves[1]->weight(), 2.5);
    EXPECT_EQ(restored->leaves[2]->label(), "c");
    EXPECT_EQ(restored->leaves[2]->weight(), std::nullopt);
    EXPECT_EQ(archive(*restored), bytes) << "archiving is deterministic and the restored record is equal";
}

TEST(VLMSDKCoder, RestoresNumbersBitForBitAndTextByteForByte) {
    const double numbers[] = {0.0,
                              -0.0,
                              1.0 / 3,
                              -1e-300,
                              std::numeric_limits<double>::denorm_min(),
                              std::numeric_limits<double>::max(),
                              std::numeric_limits<double>::lowest(),
                              std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()};
    for (double number : numbers) {
        SCOPED_TRACE(number);
        Trunk trunk;
        trunk.amount = number;
        const auto restored = unarchive(archive(trunk));
        ASSERT_NE(restored, nullptr);
        ASSERT_TRUE(restored->amount);
        if (std::isnan(number)) {
            EXPECT_TRUE(std::isnan(*restored->amount));
        } else {
            EXPECT_TRUE(sameBits(restored->amount, number)) << *restored->amount;
        }
    }
    const std::string texts[] = {"", std::string("nul\0inside", 10), "\xc3\xa9t\xc3\xa9 \xe2\x82\xac",
                                 std::string(100000, 'x')};
    for (const auto& text : texts) {
        SCOPED_TRACE(text.size());
        Trunk trunk;
        trunk.name = text;
        const auto restored = unarchive(archive(trunk));
        ASSERT_NE(restored, nullptr);
        EXPECT_EQ(restored->name, text);
    }
    const VLMSDKDate days[] = {sys_days(1970y / January / 1), sys_days(1600y / February / 29),
                               sys_days(9999y / December / 31), sys_days(-200y / March / 1),
                               VLMSDKDate::max() - std::chrono::days(1), VLMSDKDate::min() + std::chrono::days(1)};
    for (const auto& day : days) {
        SCOPED_TRACE(day.time_since_epoch().count());
        Trunk trunk;
        trunk.day = day;
        // Times stay within what seconds can count, dates to the ends of their own range.
        const VLMSDKTime at = day.time_since_epoch().count() > 0 ? VLMSDKTime::max() : VLMSDKTime::min();
        trunk.at = at;
        const auto restored = unarchive(archive(trunk));
        ASSERT_NE(restored, nullptr);
        EXPECT_EQ(restored->day, day);
        EXPECT_EQ(restored->at, at);
        EXPECT_FALSE(restored->flag);
        EXPECT_EQ(restored->leaf, nullptr);
        EXPECT_TRUE(restored->leaves.empty());
    }
}

TEST(VLMSDKCoder, AKeyTheArchiveLacksKeepsTheClassDefault) {
    OlderTrunk older;
    older.name = "written by an older build";
    older.note = "never archived";
    VLMErrorPtr error;
    const auto restored = unarchive(archive(older), &error);
    ASSERT_NE(restored, nullptr) << error->developerMessage();
    EXPECT_EQ(restored->name, "written by an older build");
    EXPECT_EQ(restored->note, "default note");
}

TEST(VLMSDKCoder, EveryTruncationFailsWithAnError) {
    const Bytes bytes = archive(*fullTrunk());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        SCOPED_TRACE(length);
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        VLMErrorPtr error;
        EXPECT_EQ(unarchive(cut, &error), nullptr);
        expectArchiveError(error);
    }
}

TEST(VLMSDKCoder, EveryChangedByteFailsWithAnError) {
    const Bytes bytes = archive(*fullTrunk());
    for (std::uint8_t mask : {0x01, 0x80, 0xFF, 0x5A}) {
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            SCOPED_TRACE(testing::Message() << "byte " << at << " ^ " << int(mask));
            Bytes damaged = bytes;
            damaged[at] ^= mask;
            VLMErrorPtr error;
            EXPECT_EQ(unarchive(damaged, &error), nullptr);
            expectArchiveError(error);
        }
    }
    Bytes longer = bytes;
    longer.push_back(0);
    VLMErrorPtr error;
    EXPECT_EQ(unarchive(longer, &error), nullptr);
    expectArchiveError(error);
}

TEST(VLMSDKCoder, AnotherClassOrFormatVersionIsRefused) {
    OtherTrunk other;
    VLMErrorPtr error;
    EXPECT_EQ(unarchive(archive(other), &error), nullptr);
    expectArchiveError(error, "OtherTrunk");
    EXPECT_NE(error->developerMessage().find("Trunk"), std::string::npos);

    error = nullptr;
    EXPECT_EQ(VLMSDKCoder::unarchivedObjectOfClass<Leaf>(archive(*fullTrunk()), &error), nullptr);
    expectArchiveError(error, "Leaf");

    // A well-formed archive of a later format version, checksum and all.
    const Bytes later = RawArchive().text("Trunk").u32(0).finish(2);
    error = nullptr;
    EXPECT_EQ(unarchive(later, &error), nullptr);
    expectArchiveError(error, "version 2");
    ASSERT_NE(unarchive(RawArchive().text("Trunk").u32(0).finish(1)), nullptr)
        << "the same bytes at version 1 are fine";

    error = nullptr;
    EXPECT_EQ(unarchive(Bytes{'{', '}', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, &error), nullptr);
    expectArchiveError(error, "not a keyed archive");
}

TEST(VLMSDKCoder, AValueOfTheWrongKindFailsTheArchive) {
    MistypedTrunk mistyped;
    mistyped.setName(5);
    VLMErrorPtr error;
    EXPECT_EQ(unarchive(archive(mistyped), &error), nullptr);
    expectArchiveError(error, "\"name\"");

    // A record where an array of records belongs, and a boolean byte that is neither 0 nor 1.
    const Bytes recordForArray =
        RawArchive().text("Trunk").u32(1).text("leaves").u8(Record).text("Leaf").u32(0).finish();
    error = nullptr;
    EXPECT_EQ(unarchive(recordForArray, &error), nullptr);
    expectArchiveError(error, "\"leaves\"");
    const Bytes badBoolean = RawArchive().text("Trunk").u32(1).text("flag").u8(Bool).u8(2).finish();
    error = nullptr;
    EXPECT_EQ(unarchive(badBoolean, &error), nullptr);
    expectArchiveError(error);
}

TEST(VLMSDKCoder, HostileLengthsAndNestingFailWithoutHugeAllocations) {
    struct Row {
        const char* name;
        Bytes bytes;
    };
    RawArchive deep;
    deep.text("Trunk").u32(1).text("leaf").u8(Record);
    for (int i = 0; i < 10000; ++i) deep.text("Leaf").u32(1).text("next").u8(Record);
    deep.text("Leaf").u32(0);
    const std::vector<Row> rows = {
        {"a huge class name", RawArchive().u32(0xFFFFFFFFu).finish()},
        {"an empty class name", RawArchive().text("").u32(0).finish()},
        {"a huge entry count", RawArchive().text("Trunk").u32(0xFFFFFFFFu).finish()},
        {"a huge key", RawArchive().text("Trunk").u32(1).u32(0xFFFFFFF0u).finish()},
        {"a huge text", RawArchive().text("Trunk").u32(1).text("name").u8(String).u32(0x7FFFFFFFu).text("x").finish()},
        {"a huge array", RawArchive().text("Trunk").u32(1).text("leaves").u8(RecordArray).u32(0xFFFFFFFFu).finish()},
        {"a short double", RawArchive().text("Trunk").u32(1).text("amount").u8(Double).u32(0).finish()},
        {"an unknown tag", RawArchive().text("Trunk").u32(1).text("name").u8(99).finish()},
        {"bytes after the record", RawArchive().text("Trunk").u32(0).u8(0).finish()},
        {"records nested 10000 deep", deep.finish()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        VLMErrorPtr error;
        EXPECT_EQ(unarchive(row.bytes, &error), nullptr);
        expectArchiveError(error);
    }
    // The same shape, nested shallowly, is a good archive.
    const Bytes shallow = RawArchive().text("Trunk").u32(1).text("leaf").u8(Record).text("Leaf").u32(1).text("next")
                              .u8(Record).text("Leaf").u32(1).text("label").u8(String).text("inner").finish();
    VLMErrorPtr error;
    const auto restored = unarchive(shallow, &error);
    ASSERT_NE(restored, nullptr) << error->developerMessage();
    ASSERT_NE(restored->leaf, nullptr);
    ASSERT_NE(restored->leaf->next(), nullptr);
    EXPECT_EQ(restored->leaf->next()->label(), "inner");
}

TEST(VLMSDKCoder, RecordsThatCannotBeArchivedGiveNoBytesAndAnError) {
    VLMErrorPtr error;
    EXPECT_TRUE(VLMSDKCoder::archivedDataWithRootObject(Unarchivable(), &error).empty());
    expectArchiveError(error, "Unarchivable");

    // A record that holds itself would nest for ever.
    auto loop = leaf("loop", 1);
    loop->setNext(loop);
    Trunk trunk;
    trunk.leaf = loop;
    error = nullptr;
    EXPECT_TRUE(VLMSDKCoder::archivedDataWithRootObject(trunk, &error).empty());
    expectArchiveError(error, "nested");
    loop->setNext(nullptr);

    error = nullptr;
    EXPECT_EQ(VLMSDKCoder::unarchivedObjectOfClass<Unarchivable>(archive(trunk), &error), nullptr);
    expectArchiveError(error);
}

TEST(VLMSDKKeyedUnarchiver, AnswersAbsentForEverythingOnceItHasFailed) {
    const Bytes bytes = archive(*fullTrunk());
    VLMSDKKeyedUnarchiver damaged(std::span<const std::uint8_t>(bytes.data(), bytes.size() - 1));
    expectArchiveError(damaged.error());
    EXPECT_FALSE(damaged.containsValueForKey("name"));
    EXPECT_TRUE(
        std::holds_alternative<std::monostate>(damaged.decodeValue("name", VLMSDKPropertyKind::String, nullptr)));
    EXPECT_EQ(damaged.decodeRootObject(Trunk::classDescriptor()), nullptr);
    const VLMErrorPtr first = damaged.error();
    damaged.failWithError(
        VLMError::errorWithCode(VLMErrorCode::Archive, kVLMSDKArchiveErrorDomain, "later", nullptr, nullptr));
    EXPECT_EQ(damaged.error(), first) << "the first failure is kept";
}

TEST(VLMSDKCoder, EncodingPropertiesNamingNoPropertyAreReportedAndSkipped) {
    class Misnamed : public VLMSDKRootObject, public VLMSDKCoding {
    public:
        static const std::vector<std::string>& names() {
            static const std::vector<std::string> list = {"ghost"};
            return list;
        }
        static const VLMSDKClass& classDescriptor() {
            static const VLMSDKClass descriptor("Misnamed", nullptr, [] { return std::make_shared<Misnamed>(); }, {},
                                                {nullptr, nullptr, &Misnamed::names, [](VLMSDKKeyedUnarchiver& coder) {
                                                     return VLMSDKCoder::objectOfClass(classDescriptor(), coder);
                                                 }});
            return descriptor;
        }
        const VLMSDKClass& objectClass() const override { return classDescriptor(); }
        void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }
    };
    const auto handler = RecordingAssertionHandler::install();
    const Bytes bytes = archive(Misnamed());
    const auto restored = VLMSDKCoder::unarchivedObjectOfClass(Misnamed::classDescriptor(), bytes, nullptr);
    const auto calls = handler->calls();
    RecordingAssertionHandler::uninstall();
    EXPECT_NE(restored, nullptr);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_NE(calls[0].text.find("ghost"), std::string::npos);
}
