#pragma once

#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <cstddef>
#include <memory>

/// The request manager of the harnesses: keeps the last request it was given and answers it at once, on
/// the calling thread, with the reply it holds (by default a 404 with a JSON error body); a request carrying
/// a build error is answered with that error and not counted as sent, as the HTTP transport does.
class FuzzRequestManager final : public VLMSDKRequestManager {
public:
    struct Reply {
        std::shared_ptr<const VLMSDKJSONReply> json;
        std::shared_ptr<const VLMSDKURLResponse> response;
        VLMErrorPtr error;
    };

    FuzzRequestManager();

    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override;

    void setReply(Reply reply) { reply_ = std::move(reply); }
    /// The last request given, and how many were sent since `forget`.
    const std::shared_ptr<const VLMSDKRequest>& lastRequest() const { return lastRequest_; }
    std::size_t requestCount() const { return requestCount_; }
    void forget();

private:
    Reply reply_;
    std::shared_ptr<const VLMSDKRequest> lastRequest_;
    std::size_t requestCount_ = 0;
};
