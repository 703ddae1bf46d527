#include "FuzzRequestManager.h"

FuzzRequestManager::FuzzRequestManager() {
    reply_.json = std::make_shared<const VLMSDKJSONReply>(VLMSDKJSON{{"error", {{"code", "not_found"}, {"message", "No."}}}});
    reply_.response = std::make_shared<const VLMSDKURLResponse>("http://127.0.0.1/", 404);
}

void FuzzRequestManager::performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                VLMSDKDataTaskCompletion completion) {
    lastRequest_ = std::move(request);
    // As the HTTP transport does: a request that could not be built is answered with why, and never sent.
    if (lastRequest_ && lastRequest_->buildError()) {
        if (completion) completion(nullptr, nullptr, lastRequest_->buildError());
        return;
    }
    ++requestCount_;
    if (completion) completion(reply_.json, reply_.response, reply_.error);
}

void FuzzRequestManager::forget() {
    lastRequest_.reset();
    requestCount_ = 0;
}
