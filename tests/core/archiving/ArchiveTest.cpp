#include "../support/CoreTestRecords.h"
#include "RecordingAssertionHandler.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

namespace {

using namespace std::chrono;
using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<Leaf> leaf(std::optional<std::string> label, std::optional<double> count) {
    auto made = std::make_shared<Leaf>();
    made->label = std::move(label);
    made->count = count;
    return made;
}

Bytes archive(const VLMSDKRootObject& object) {
    VLMErrorPtr error;
    Bytes bytes = VLMSDKCoder::archivedDataWithRootObject(object, &error);
    EXPECT_EQ(error, nullptr) << error->developerMessage();
    return bytes;
}

std::shared_ptr<Ledger> unarchive(const Bytes& bytes, VLMErrorPtr* error = nullptr) {
    return VLMSDKCoder::unarchivedObjectOfClass<Ledger>(bytes, error);
}

void expectArchiveError(const VLMErrorPtr& error, const std::string& mention = "") {
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), kVLMSDKArchiveErrorDomain);
    EXPECT_EQ(error->code(), VLMErrorCode::Archive);
    EXPECT_NE(error->developerMessage().find(mention), std::string::npos) << error->developerMessage();
}

// Writes archive bytes by hand in the archive's layout, with a correct header and an independent CRC-32.
class RawArchive {
public:
    RawArchive& u8(std::uint8_t value) { return integer(value, 1); }
    RawArchive& u32(std::uint32_t value) { return integer(value, 4); }
    RawArchive& u64(std::uint64_t value) { return integer(value, 8); }
    RawArchive& text(const std::string& value) {
        u32(static_cast<std::uint32_t>(value.size()));
        body_.insert(body_.end(), value.begin(), value.end());
        return *this;
    }
    Bytes finish(std::uint8_t version = 1) const {
        Bytes bytes = {'V', 'L', 'M', 'A', version, 0, 0, 0};
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(body_.size() >> (8 * i)));
        bytes.insert(bytes.end(), body_.begin(), body_.end());
        std::uint32_t crc = 0xFFFFFFFFu;
        for (std::uint8_t byte : bytes) {
            crc ^= byte;
            for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
        }
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(~crc >> (8 * i)));
        return bytes;
    }

private:
    RawArchive& integer(std::uint64_t value, int size) {
        for (int i = 0; i < size; ++i) body_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        return *this;
    }
    Bytes body_;
};

enum Tag : std::uint8_t { Absent, String, Double, Bool, Date, Time, Record, RecordArray };

}  // namespace

TEST(VLMSDKCoder, RestoresEveryKindOfValueExactly) {
    Ledger original;
    original.title = std::nullopt;  // absent over a default stays absent
    original.total = 1234.5;
    original.open = false;
    original.day = sys_days(2026y / November / 21);
    original.stamp = sys_days(2026y / November / 21) + 10h + 4min + 5s;
    original.lead = leaf("single", -0.0);
    original.leaves = {leaf("a", 1), leaf(std::nullopt, 2.5), leaf("c", std::nullopt)};
    const Bytes bytes = archive(original);
    VLMErrorPtr error;
    const auto restored = unarchive(bytes, &error);
    ASSERT_NE(restored, nullptr) << error->developerMessage();
    EXPECT_EQ(restored->title, std::nullopt);
    EXPECT_EQ(restored->total, 1234.5);
    EXPECT_FALSE(restored->open);
    EXPECT_EQ(restored->day, original.day);
    EXPECT_EQ(restored->stamp, original.stamp);
    ASSERT_NE(restored->lead, nullptr);
    EXPECT_EQ(restored->lead->label, "single");
    EXPECT_TRUE(std::signbit(restored->lead->count.value()));
    ASSERT_EQ(restored->leaves.size(), 3u);
    EXPECT_EQ(restored->leaves[1]->label, std::nullopt);
    EXPECT_EQ(restored->leaves[1]->count, 2.5);
    EXPECT_EQ(restored->leaves[2]->label, "c");
    EXPECT_EQ(archive(*restored), bytes) << "archiving is deterministic and the restored record is equal";
}

TEST(VLMSDKCoder, RestoresNumbersBitForBitTextByteForByteAndDatesToTheEndsOfTheirRange) {
    for (double number : {-0.0, 1.0 / 3, std::numeric_limits<double>::denorm_min(),
                          std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::quiet_NaN()}) {
        SCOPED_TRACE(number);
        Ledger ledger;
        ledger.total = number;
        const auto restored = unarchive(archive(ledger));
        ASSERT_TRUE(restored && restored->total);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(*restored->total), std::bit_cast<std::uint64_t>(number));
    }
    for (const auto& text : {std::string(), std::string("nul\0inside", 10), std::string(100000, 'x')}) {
        SCOPED_TRACE(text.size());
        Ledger ledger;
        ledger.title = text;
        const auto restored = unarchive(archive(ledger));
        ASSERT_NE(restored, nullptr);
        EXPECT_EQ(restored->title, text);
    }
    // Times to the ends of what seconds count, dates to the ends of their own range.
    const std::pair<VLMSDKDate, VLMSDKTime> ends[] = {{VLMSDKDate::max(), VLMSDKTime::max()},
                                                       {VLMSDKDate::min(), VLMSDKTime::min()},
                                                       {sys_days(-200y / March / 1), VLMSDKTime(-1s)}};
    for (const auto& [day, stamp] : ends) {
        SCOPED_TRACE(day.time_since_epoch().count());
        Ledger ledger;
        ledger.day = day;
        ledger.stamp = stamp;
        const auto restored = unarchive(archive(ledger));
        ASSERT_NE(restored, nullptr);
        EXPECT_EQ(restored->day, day);
        EXPECT_EQ(restored->stamp, stamp);
    }
}

TEST(VLMSDKCoder, AnArchiveWithoutAKeyKeepsTheClassDefault) {
    // As an older build would write it: only `lead`, two records deep.
    const Bytes bytes = RawArchive().text("Ledger").u32(1).text("lead").u8(Record).text("Leaf").u32(1).text("next")
                            .u8(Record).text("Leaf").u32(1).text("label").u8(String).text("inner").finish();
    VLMErrorPtr error;
    const auto restored = unarchive(bytes, &error);
    ASSERT_NE(restored, nullptr) << error->developerMessage();
    EXPECT_EQ(restored->title, "untitled");
    EXPECT_TRUE(restored->open);
    ASSERT_TRUE(restored->lead && restored->lead->next);
    EXPECT_EQ(restored->lead->next->label, "inner");
}

TEST(VLMSDKCoder, MismatchedOrHostileArchivesFailWithoutHugeAllocations) {
    struct Row {
        const char* name;
        Bytes bytes;
        const char* mention = "";
    };
    RawArchive deep;
    deep.text("Ledger").u32(1).text("lead").u8(Record);
    for (int i = 0; i < 10000; ++i) deep.text("Leaf").u32(1).text("next").u8(Record);
    deep.text("Leaf").u32(0);
    const auto ledger = [] { return RawArchive().text("Ledger").u32(1); };
    const std::vector<Row> rows = {
        {"another class", RawArchive().text("Leaf").u32(0).finish(), "Leaf"},
        {"a later format version", RawArchive().text("Ledger").u32(0).finish(2), "version 2"},
        {"no archive signature", Bytes{'{', '}', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, "not a keyed archive"},
        {"a number where text belongs", ledger().text("title").u8(Double).u64(0).finish(), "\"title\""},
        {"a record where an array belongs", ledger().text("leaves").u8(Record).text("Leaf").u32(0).finish(),
         "\"leaves\""},
        {"a boolean byte of 2", ledger().text("open").u8(Bool).u8(2).finish()},
        {"a huge class name", RawArchive().u32(0xFFFFFFFFu).finish()},
        {"an empty class name", RawArchive().text("").u32(0).finish()},
        {"a huge entry count", RawArchive().text("Ledger").u32(0xFFFFFFFFu).finish()},
        {"a huge array", ledger().text("leaves").u8(RecordArray).u32(0xFFFFFFFFu).finish()},
        {"a short double", ledger().text("total").u8(Double).u32(0).finish()},
        {"an unknown tag", ledger().text("title").u8(99).finish()},
        {"bytes after the record", RawArchive().text("Ledger").u32(0).u8(0).finish()},
        {"records nested 10000 deep", deep.finish()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        VLMErrorPtr error;
        EXPECT_EQ(unarchive(row.bytes, &error), nullptr);
        expectArchiveError(error, row.mention);
    }
}

TEST(VLMSDKCoder, RecordsThatCannotBeArchivedGiveNoBytesAndAnError) {
    VLMErrorPtr error;
    EXPECT_TRUE(VLMSDKCoder::archivedDataWithRootObject(Bare(), &error).empty());
    expectArchiveError(error, "Bare");

    // A record that holds itself would nest for ever.
    auto loop = leaf("loop", 1);
    loop->next = loop;
    Ledger ledger;
    ledger.lead = loop;
    error = nullptr;
    EXPECT_TRUE(VLMSDKCoder::archivedDataWithRootObject(ledger, &error).empty());
    expectArchiveError(error, "nested");
    loop->next = nullptr;

    error = nullptr;
    EXPECT_EQ(VLMSDKCoder::unarchivedObjectOfClass<Bare>(RawArchive().text("Bare").u32(0).finish(), &error), nullptr);
    expectArchiveError(error, "Bare");
}

TEST(VLMSDKCoder, EncodingPropertiesNamingNoPropertyAreReportedAndSkipped) {
    // A class that lists a property it does not have.
    class Misnamed : public VLMSDKRootObject, public VLMSDKCoding {
    public:
        static const VLMSDKClass& classDescriptor() {
            static const std::vector<std::string> names = {"ghost"};
            static const VLMSDKClass descriptor(
                "Misnamed", nullptr, [] { return std::make_shared<Misnamed>(); }, {},
                {nullptr, nullptr, []() -> const std::vector<std::string>& { return names; },
                 [](VLMSDKKeyedUnarchiver& coder) { return VLMSDKCoder::objectOfClass(classDescriptor(), coder); }});
            return descriptor;
        }
        const VLMSDKClass& objectClass() const override { return classDescriptor(); }
        void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override { VLMSDKCoder::encodeObject(*this, coder); }
    };
    const auto handler = RecordingAssertionHandler::install();
    const auto restored = VLMSDKCoder::unarchivedObjectOfClass(Misnamed::classDescriptor(), archive(Misnamed()), nullptr);
    const auto calls = handler->calls();
    RecordingAssertionHandler::uninstall();
    EXPECT_NE(restored, nullptr);
    ASSERT_EQ(calls.size(), 2u) << "once writing, once reading";
    EXPECT_NE(calls[0].text.find("ghost"), std::string::npos);
}
