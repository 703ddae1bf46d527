#include "RecordingAssertionHandler.h"

#include <VLMSDKPMSKit/Public/VLMSDKPMS.h>

#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

const char* kMissingKitMessage = "Configuration must have VLMSDKPMSKit in kits array";

const VLMSDKClass& otherKitClass() {
    static const VLMSDKClass descriptor("VLMSDKOtherKit", nullptr, nullptr, {});
    return descriptor;
}

// A class derived from the kit's: a different class object, so it must not match.
const VLMSDKClass& derivedKitClass() {
    static const VLMSDKClass descriptor("VLMSDKPMSDerived", &VLMSDKPMS::classDescriptor(), nullptr, {});
    return descriptor;
}

std::shared_ptr<VLMSDKConfiguration> configurationWith(std::vector<const VLMSDKClass*> classes) {
    auto configuration = std::make_shared<VLMSDKConfiguration>();
    VLMSDKConfiguration::Kits kits;
    for (const auto* c : classes) kits.push_back(c ? std::make_shared<const VLMSDKConfigurationKit>(*c) : nullptr);
    configuration->setKits(std::move(kits));
    return configuration;
}

std::size_t missingKitAsserts(const RecordingAssertionHandler& handler) {
    std::size_t count = 0;
    for (const auto& call : handler.calls()) count += !call.isParameterAssert && call.text == kMissingKitMessage;
    return count;
}

class KitEntry : public testing::Test {
protected:
    void SetUp() override { handler = RecordingAssertionHandler::install(); }
    void TearDown() override { RecordingAssertionHandler::uninstall(); }
    std::shared_ptr<RecordingAssertionHandler> handler;
};

}  // namespace

// Each test runs in its own process, so each starts with no shared instance.
TEST_F(KitEntry, OnlyAConfigurationListingTheKitItselfCreatesTheOneInstance) {
    EXPECT_EQ(VLMSDKPMS::sharedInstance(), nullptr);

    struct Row { const char* name; std::shared_ptr<VLMSDKConfiguration> configuration; };
    const Row refused[] = {
        {"no configuration", nullptr},
        {"no kits", configurationWith({})},
        {"another kit", configurationWith({&otherKitClass()})},
        {"a class derived from the kit", configurationWith({&derivedKitClass()})},
        {"an absent entry", configurationWith({nullptr})},
    };
    std::size_t asserts = 0;
    for (const auto& row : refused) {
        SCOPED_TRACE(row.name);
        VLMSDKPMS::enableWithConfiguration(row.configuration);
        EXPECT_EQ(missingKitAsserts(*handler), ++asserts);
        EXPECT_EQ(VLMSDKPMS::sharedInstance(), nullptr);
    }

    // Listed twice, among others and absent entries: one instance, no assertion.
    VLMSDKPMS::enableWithConfiguration(
        configurationWith({&otherKitClass(), &VLMSDKPMS::classDescriptor(), nullptr, &VLMSDKPMS::classDescriptor()}));
    EXPECT_EQ(missingKitAsserts(*handler), asserts);
    const auto instance = VLMSDKPMS::sharedInstance();
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance->configuration(), nullptr);
    EXPECT_EQ(&instance->objectClass(), &VLMSDKPMS::classDescriptor());
    instance->start();
    instance->start();

    VLMSDKPMS::enableWithConfiguration(configurationWith({&VLMSDKPMS::classDescriptor()}));
    EXPECT_EQ(VLMSDKPMS::sharedInstance(), instance);
    EXPECT_EQ(VLMSDKPMS::sharedInstanceWithConfiguration(configurationWith({&otherKitClass()})), instance);
    EXPECT_EQ(missingKitAsserts(*handler), asserts);
}

TEST_F(KitEntry, CreatingDirectlyNeedsNoListing) {
    const auto instance = VLMSDKPMS::sharedInstanceWithConfiguration(configurationWith({&otherKitClass()}));
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(VLMSDKPMS::sharedInstance(), instance);
    EXPECT_EQ(VLMSDKPMS::sharedInstanceWithConfiguration(nullptr), instance);
    EXPECT_TRUE(handler->calls().empty());
}

TEST_F(KitEntry, ConcurrentEnablingMakesExactlyOneInstance) {
    const auto configuration = configurationWith({&VLMSDKPMS::classDescriptor()});
    constexpr int threads = 8;
    std::vector<std::shared_ptr<VLMSDKPMS>> seen(threads);
    std::vector<std::thread> enablers;
    for (int i = 0; i < threads; ++i) {
        enablers.emplace_back([&, i] {
            VLMSDKPMS::enableWithConfiguration(configuration);
            seen[i] = VLMSDKPMS::sharedInstance();
        });
    }
    for (auto& t : enablers) t.join();
    ASSERT_NE(seen[0], nullptr);
    for (const auto& instance : seen) EXPECT_EQ(instance, seen[0]);
}
