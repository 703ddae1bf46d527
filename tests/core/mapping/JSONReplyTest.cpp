// The transport's reply reader and the reply it makes: the nesting limit at its edge, what is no JSON, and
// the JSON value built on demand, once, whichever threads ask.
#include <JSON/VLMSDKJSONReader.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using vlmsdk::detail::VLMSDKJSONReader;

// `depth` containers, one inside the other, around `inside`.
std::string nested(std::size_t depth, bool objects, const std::string& inside) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += objects ? R"({"a":)" : "[";
    if (objects && inside.empty()) {
        text.resize(text.size() - 5);  // the innermost object is empty: {}
        text += "{}";
        for (std::size_t i = 1; i < depth; ++i) text += "}";
        return text;
    }
    text += inside;
    for (std::size_t i = 0; i < depth; ++i) text += objects ? "}" : "]";
    return text;
}

}  // namespace

TEST(VLMSDKJSONReader, RefusesNestingPastTheLimitAndWhatIsNoJSON) {
    VLMSDKJSONReader reader;
    for (const bool objects : {false, true}) {
        // A number beyond 64 bits takes the second parser: its limit must be the same.
        for (const std::string inside : {"", "1", "123456789012345678901234567890"}) {
            for (const std::size_t depth : {kVLMSDKMaximumJSONDepth, kVLMSDKMaximumJSONDepth + 1}) {
                SCOPED_TRACE((objects ? "objects, " : "arrays, ") + std::to_string(depth) + " deep around '" + inside +
                             "'");
                std::string text = nested(depth, objects, inside);
                const auto read = reader.read(text);
                // The public parse, for hosts' own request managers, reads as the transport's reader does.
                auto failure = VLMSDKJSONReply::ParseFailure::NotJSON;
                const bool parsed = VLMSDKJSONReply::parse(text, &failure) != nullptr;
                EXPECT_EQ(parsed, depth <= kVLMSDKMaximumJSONDepth);
                EXPECT_EQ(failure, parsed ? VLMSDKJSONReply::ParseFailure::None : VLMSDKJSONReply::ParseFailure::TooDeep);
                if (depth <= kVLMSDKMaximumJSONDepth) {
                    ASSERT_NE(read.reply, nullptr);
                    EXPECT_EQ(read.failure, VLMSDKJSONReader::Failure::None);
                    EXPECT_EQ(read.reply->json(), VLMSDKJSON::parse(text));
                } else {
                    EXPECT_EQ(read.reply, nullptr);
                    EXPECT_EQ(read.failure, VLMSDKJSONReader::Failure::TooDeep);
                }
            }
        }
    }
    for (std::string text : {"", "{", "[1,]", R"({"a":1} x)", "nul", "\"\xff\"", "{\"a\":01}"}) {
        SCOPED_TRACE(text);
        auto failure = VLMSDKJSONReply::ParseFailure::None;
        EXPECT_EQ(VLMSDKJSONReply::parse(text, &failure), nullptr);
        EXPECT_EQ(failure, VLMSDKJSONReply::ParseFailure::NotJSON);
        const auto read = reader.read(text);
        EXPECT_EQ(read.reply, nullptr);
        EXPECT_EQ(read.failure, VLMSDKJSONReader::Failure::NotJSON);
    }
}

TEST(VLMSDKJSONReply, BuildsTheSameValueOnceForEveryThreadAndAnswersKeysWithoutIt) {
    const std::string mixed =
        R"({"s":"caf\u00e9 \"q\"","n":[0,-0,-7,18446744073709551615,1.5e300,-2.5],"b":[true,false,null],)"
        R"("o":{"k":"first","k":"last"},"e":{},"a":[],"t":""})";
    VLMSDKJSONReader reader;
    // A reply past the kept capacity renews the parser; the next one reads as before.
    std::string large = "[" + std::string(2 << 20, ' ') + "1]";
    ASSERT_NE(reader.read(large).reply, nullptr);
    std::string text = mixed;
    const auto reply = reader.read(text).reply;
    ASSERT_NE(reply, nullptr);
    EXPECT_TRUE(reply->isObject());
    EXPECT_TRUE(reply->hasMember("e"));
    EXPECT_FALSE(reply->hasMember("k"));

    std::vector<const VLMSDKJSON*> seen(4);
    std::vector<std::thread> threads;
    for (auto& slot : seen) threads.emplace_back([&reply, &slot] { slot = &reply->json(); });
    for (auto& thread : threads) thread.join();
    for (const auto* value : seen) EXPECT_EQ(value, seen[0]);
    EXPECT_EQ(*seen[0], VLMSDKJSON::parse(mixed));
    EXPECT_EQ(seen[0]->at("o").at("k"), "last");

    for (std::string scalar : {"\"text\"", "12", "null"}) {
        const auto read = reader.read(scalar);
        ASSERT_NE(read.reply, nullptr) << scalar;
        EXPECT_FALSE(read.reply->isObject());
        EXPECT_FALSE(read.reply->hasMember("text"));
        EXPECT_EQ(read.reply->json(), VLMSDKJSON::parse(scalar));
    }
}
