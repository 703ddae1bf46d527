#pragma once

#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

/// A canned reply: what a request manager hands the reply handler.
struct FakeReply {
    std::shared_ptr<const VLMSDKJSONReply> json;
    std::shared_ptr<const VLMSDKURLResponse> response;
    VLMErrorPtr error;

    /// An HTTP reply with `status` and a JSON body (no body when `body` is absent), read from its text by
    /// the transport's reader, as a real reply is.
    static FakeReply http(long status, std::optional<VLMSDKJSON> body = std::nullopt,
                          VLMSDKURLResponse::Headers headers = {});
    /// A transport failure: no response, only `error`.
    static FakeReply failure(VLMErrorPtr error);
};

/// Records every request it is given and answers when told: at once on the calling thread (auto reply),
/// or later, from the test, on the test's thread or on a new thread.
class FakeRequestManager final : public VLMSDKRequestManager {
public:
    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override;

    /// Answer every later request with `reply`, synchronously, inside performDataTaskRequest.
    void setAutoReply(std::optional<FakeReply> reply);

    std::size_t requestCount() const;
    std::shared_ptr<const VLMSDKRequest> request(std::size_t index) const;

    /// Answers the pending request `index` on the calling thread.
    void answer(std::size_t index, const FakeReply& reply);
    /// Answers the pending request `index` on a new thread and waits for that thread to end.
    void answerOnNewThread(std::size_t index, const FakeReply& reply);

private:
    VLMSDKDataTaskCompletion takeHandler(std::size_t index);

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<const VLMSDKRequest>> requests_;
    std::vector<VLMSDKDataTaskCompletion> handlers_;
    std::optional<FakeReply> autoReply_;
};
