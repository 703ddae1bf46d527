// The token cache over a provider: one fetch however many wait, a token kept until shortly before it expires,
// a refused one never used again, and every waiter answered once whatever the provider does.
#include <VLMSDKCoreKit/VLMSDKCredentials.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

// Holds each fetch's completion until the test answers it; notes the threads fetches ran on.
class HeldProvider final : public VLMSDKCredentialsProvider {
public:
    void fetchToken(Completion completion) override {
        std::lock_guard lock(mutex_);
        threads_.push_back(std::this_thread::get_id());
        pending_.push_back(std::move(completion));
        changed_.notify_all();
    }
    // Waits for fetch number `n` (1-based) to be asked for, then answers it.
    void answer(std::size_t n, std::optional<VLMSDKAccessToken> token, VLMErrorPtr error = nullptr) {
        Completion completion;
        {
            std::unique_lock lock(mutex_);
            EXPECT_TRUE(changed_.wait_for(lock, 5s, [&] { return pending_.size() >= n; })) << "fetch " << n;
            if (pending_.size() < n) return;
            completion = pending_[n - 1];
        }
        completion(std::move(token), std::move(error));
    }
    std::vector<std::thread::id> threads() const {
        std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Completion> pending_;
    std::vector<std::thread::id> threads_;
};

// Every answer a handler received.
struct Answers {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<std::shared_ptr<const std::string>, VLMErrorPtr>> got;

    VLMSDKCredentials::Handler handler() {
        return [this](std::shared_ptr<const std::string> authorization, VLMErrorPtr error) {
            std::lock_guard lock(mutex);
            got.emplace_back(std::move(authorization), std::move(error));
            changed.notify_all();
        };
    }
    bool waitFor(std::size_t n) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 5s, [&] { return got.size() >= n; });
    }
};

VLMSDKAccessToken token(std::string value, std::chrono::system_clock::duration lifetime) {
    return {std::move(value), std::chrono::system_clock::now() + lifetime};
}

}  // namespace

TEST(Credentials, ManyWaitersShareOneFetchOffTheCallingThreadAndTheTokenIsThenServedFromTheCache) {
    auto provider = std::make_shared<HeldProvider>();
    auto credentials = VLMSDKCredentials::make(provider);
    Answers answers;
    for (int i = 0; i < 100; ++i) credentials->authorize(answers.handler());
    EXPECT_EQ(credentials->freshAuthorization(), nullptr);
    provider->answer(1, token("abc", 1h));
    ASSERT_TRUE(answers.waitFor(100));
    EXPECT_EQ(credentials->fetchCount(), 1u);
    for (const auto& [authorization, error] : answers.got) {
        ASSERT_TRUE(authorization);
        EXPECT_EQ(*authorization, "Bearer abc");
        EXPECT_EQ(error, nullptr);
    }
    ASSERT_EQ(provider->threads().size(), 1u);
    EXPECT_NE(provider->threads()[0], std::this_thread::get_id());
    // Cached: answered at once, on this thread, with no second fetch.
    ASSERT_TRUE(credentials->freshAuthorization());
    credentials->authorize(answers.handler());
    EXPECT_EQ(answers.got.size(), 101u);
    EXPECT_EQ(credentials->fetchCount(), 1u);
}

TEST(Credentials, ATokenIsFetchedAnewBeforeItExpiresAndAfterTheServiceRefusedIt) {
    struct Row { const char* name; std::chrono::system_clock::duration lifetime; bool freshAfterFetch; };
    const Row rows[] = {
        {"an hour: fresh until a minute before", 1h, true},
        {"two seconds: fresh for most of them (the skew is at most a quarter)", 2s, true},
        {"expired already: given to the waiters, not cached", -1s, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto provider = std::make_shared<HeldProvider>();
        auto credentials = VLMSDKCredentials::make(provider);
        Answers answers;
        credentials->authorize(answers.handler());
        provider->answer(1, token("t1", row.lifetime));
        ASSERT_TRUE(answers.waitFor(1));
        ASSERT_TRUE(answers.got[0].first);
        const auto cached = credentials->freshAuthorization();
        EXPECT_EQ(cached != nullptr, row.freshAfterFetch);
        if (!cached) continue;
        credentials->markRefused(std::make_shared<const std::string>("Bearer t1"));  // an equal text, not this token
        EXPECT_TRUE(credentials->freshAuthorization());
        credentials->markRefused(cached);
        EXPECT_EQ(credentials->freshAuthorization(), nullptr);
        credentials->authorize(answers.handler());
        provider->answer(2, token("t2", row.lifetime));
        ASSERT_TRUE(answers.waitFor(2));
        EXPECT_EQ(*answers.got[1].first, "Bearer t2");
        EXPECT_EQ(credentials->fetchCount(), 2u);
    }
}

TEST(Credentials, AFailedUnusableOrSilentFetchAnswersEveryWaiterOnceWithAnAuthenticationErrorAndNeverTheToken) {
    struct Row {
        const char* name;
        std::optional<VLMSDKAccessToken> token;
        VLMErrorPtr error;
        bool answered;  // false: the provider never answers
        const char* says;
    };
    const Row rows[] = {
        {"the provider's error", std::nullopt,
         VLMError::errorWithCode(VLMErrorCode::Transport, "sign-in", "sign-in service unreachable", "f", "file"), true,
         "The credentials provider failed: sign-in service unreachable."},
        {"neither token nor error", std::nullopt, nullptr, true, "it gave neither a token nor an error"},
        {"a token holding CR LF", VLMSDKAccessToken{"s3cret\r\nX-Evil: 1"}, nullptr, true, "cannot be sent"},
        {"an empty token", VLMSDKAccessToken{""}, nullptr, true, "cannot be sent"},
        {"no answer within the fetch timeout", std::nullopt, nullptr, false, "did not give a token within 50 ms"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto provider = std::make_shared<HeldProvider>();
        auto credentials = VLMSDKCredentials::make(provider, {60s, 50ms});
        Answers answers;
        for (int i = 0; i < 3; ++i) credentials->authorize(answers.handler());
        if (row.answered) provider->answer(1, row.token, row.error);
        ASSERT_TRUE(answers.waitFor(3));
        if (!row.answered) provider->answer(1, VLMSDKAccessToken{"late"});  // too late: ignored
        std::this_thread::sleep_for(10ms);
        std::lock_guard lock(answers.mutex);
        ASSERT_EQ(answers.got.size(), 3u);
        for (const auto& [authorization, error] : answers.got) {
            EXPECT_EQ(authorization, nullptr);
            ASSERT_TRUE(error);
            EXPECT_EQ(error->code(), VLMErrorCode::Authentication);
            EXPECT_NE(error->developerMessage().find(row.says), std::string::npos) << error->developerMessage();
            EXPECT_EQ(error->developerMessage().find("s3cret"), std::string::npos);
        }
        EXPECT_EQ(credentials->freshAuthorization(), nullptr);
        EXPECT_EQ(credentials->fetchCount(), 1u);
    }
}

TEST(Credentials, ABuilderWithAProviderAttachesItsCredentialsAndNoFixedToken) {
    VLMSDKRequestBuilder builder("http://localhost/");
    builder.setAccessToken("fixed");
    builder.setCredentialsProvider(std::make_shared<HeldProvider>());
    auto request = builder.GETWithPath("x", std::nullopt);
    EXPECT_FALSE(request->headerValue("Authorization"));
    EXPECT_EQ(request->credentials(), builder.credentials());
    ASSERT_TRUE(request->credentials());
    builder.setCredentialsProvider(nullptr);
    EXPECT_EQ(builder.GETWithPath("x", std::nullopt)->headerValue("Authorization"), "Bearer fixed");
}
