#include "FakeRequestManager.h"

#include <JSON/VLMSDKJSONReader.h>

#include <stdexcept>
#include <thread>

FakeReply FakeReply::http(long status, std::optional<VLMSDKJSON> body, VLMSDKURLResponse::Headers headers) {
    FakeReply reply;
    reply.response = std::make_shared<const VLMSDKURLResponse>("http://fake.invalid/", status, std::move(headers));
    if (body) {
        std::string text = body->dump();
        vlmsdk::detail::VLMSDKJSONReader reader;
        reply.json = reader.read(text).reply;
        if (!reply.json) throw std::logic_error("the reader refused a canned reply");
    }
    return reply;
}

FakeReply FakeReply::failure(VLMErrorPtr error) {
    FakeReply reply;
    reply.error = std::move(error);
    return reply;
}

void FakeRequestManager::performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                VLMSDKDataTaskCompletion completion) {
    std::optional<FakeReply> reply;
    {
        std::lock_guard lock(mutex_);
        requests_.push_back(std::move(request));
        reply = autoReply_;
        handlers_.push_back(reply ? VLMSDKDataTaskCompletion() : std::move(completion));
    }
    if (reply) completion(reply->json, reply->response, reply->error);
}

void FakeRequestManager::setAutoReply(std::optional<FakeReply> reply) {
    std::lock_guard lock(mutex_);
    autoReply_ = std::move(reply);
}

std::size_t FakeRequestManager::requestCount() const {
    std::lock_guard lock(mutex_);
    return requests_.size();
}

std::shared_ptr<const VLMSDKRequest> FakeRequestManager::request(std::size_t index) const {
    std::lock_guard lock(mutex_);
    return index < requests_.size() ? requests_[index] : nullptr;
}

VLMSDKDataTaskCompletion FakeRequestManager::takeHandler(std::size_t index) {
    std::lock_guard lock(mutex_);
    if (index >= handlers_.size() || !handlers_[index]) throw std::logic_error("no pending request at that index");
    return std::exchange(handlers_[index], nullptr);
}

void FakeRequestManager::answer(std::size_t index, const FakeReply& reply) {
    takeHandler(index)(reply.json, reply.response, reply.error);
}

void FakeRequestManager::answerOnNewThread(std::size_t index, const FakeReply& reply) {
    auto handler = takeHandler(index);
    std::thread([&] { handler(reply.json, reply.response, reply.error); }).join();
}
