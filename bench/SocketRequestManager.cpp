#include "SocketRequestManager.h"

#include <Velmora_Errors/VLMError.h>

#include <memory>
#include <string>
#include <vector>

#include "JSON/VLMSDKJSONReader.h"
#include "Transport/VLMSDKHTTP1Connection.h"
#include "VLMSDKMainQueueSource.h"

namespace vlmsdk::bench {
namespace {

using vlmsdk::detail::VLMSDKHTTP1Connection;
using vlmsdk::detail::VLMSDKJSONReader;
using Step = VLMSDKHTTP1Connection::Step;

VLMErrorPtr networkError(VLMErrorCode code, std::string message) {
    return VLMError::errorWithCode(code, kVLMSDKNetworkErrorDomain, std::move(message), __func__, __FILE__);
}

// A connection and the exchange it carries, if any.
struct Slot {
    std::unique_ptr<VLMSDKHTTP1Connection> connection;
    std::shared_ptr<const VLMSDKRequest> request;
    VLMSDKDataTaskCompletion completion;
};

class SocketRequestManager final : public VLMSDKRequestManager, public vlmsdk::detail::VLMSDKMainQueueSource {
public:
    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override {
        if (request->buildError()) return completion(nullptr, nullptr, request->buildError());
        const auto target = VLMSDKHTTP1Connection::Target::of(request->url());
        if (!target) {
            return completion(nullptr, nullptr,
                              networkError(VLMErrorCode::InvalidRequest, "Only http to an IP address is spoken here."));
        }
        Slot* slot = nullptr;
        for (auto& candidate : slots_) {
            if (candidate->connection && !candidate->completion &&
                candidate->connection->authority() == target->authority) {
                slot = candidate.get();
                break;
            }
        }
        if (!slot) {
            std::string error;
            auto connection = VLMSDKHTTP1Connection::open(*target, &error);
            if (!connection) return completion(nullptr, nullptr, networkError(VLMErrorCode::Transport, error));
            slots_.push_back(std::make_unique<Slot>(Slot{std::move(connection), nullptr, nullptr}));
            slot = slots_.back().get();
        }
        slot->request = std::move(request);
        slot->completion = std::move(completion);
        const std::string text = VLMSDKHTTP1Connection::requestText(*slot->request, *target, std::nullopt);
        settle(*slot, slot->connection->start(text, vlmsdk::detail::VLMSDKHTTP1ReplyParser::Limits()));
    }

    int prepareWait(std::vector<pollfd>& descriptors) override {
        // Only connections with an exchange: the other clients of the benchmark pump the same queue, and
        // must not pay for this one's idle connections (one that the server closed fails when next used).
        waitingOn_.clear();
        for (auto& slot : slots_) {
            if (!slot->completion) continue;
            descriptors.push_back({slot->connection->descriptor(), slot->connection->events(), 0});
            waitingOn_.push_back(slot.get());
        }
        return -1;
    }

    void dispatch(std::span<const pollfd> descriptors) override {
        // A completion may start the next request on a slot this loop already passed, or add one: only the
        // slots waited on are looked at, through a copy of the list that the next prepareWait cannot touch.
        dispatching_.swap(waitingOn_);
        for (std::size_t i = 0; i < descriptors.size() && i < dispatching_.size(); ++i) {
            if (descriptors[i].revents == 0) continue;
            Slot& slot = *dispatching_[i];
            settle(slot, slot.connection->advance(descriptors[i].revents));
        }
        dispatching_.clear();
        std::erase_if(slots_, [](const auto& slot) { return !slot->connection; });
    }

private:
    void settle(Slot& slot, Step step) {
        if (step == Step::Waiting) return;
        VLMSDKDataTaskCompletion completion = std::move(slot.completion);
        slot.completion = nullptr;
        const auto request = std::move(slot.request);
        if (step == Step::Failed) {
            const std::string message = slot.connection->failureMessage();
            slot.connection.reset();  // its slot goes at the end of the next dispatch
            if (completion) completion(nullptr, nullptr, networkError(VLMErrorCode::Transport, message));
            return;
        }
        auto& reply = slot.connection->reply();
        auto response = std::make_shared<const VLMSDKURLResponse>(request->url(), reply.statusCode(), reply.headers());
        std::shared_ptr<const VLMSDKJSONReply> body;
        VLMErrorPtr error;
        if (!reply.body().empty()) {
            body = reader_.read(reply.body()).reply;
            if (!body) error = networkError(VLMErrorCode::InvalidResponse, "The reply is not JSON.");
        }
        if (!slot.connection->reusable()) slot.connection.reset();
        completion(std::move(body), std::move(response), std::move(error));
    }

    std::vector<std::unique_ptr<Slot>> slots_;
    std::vector<Slot*> waitingOn_;    // prepareWait's descriptors, in order
    std::vector<Slot*> dispatching_;  // the same, as the dispatch under way took them
    VLMSDKJSONReader reader_;
};

}  // namespace

std::shared_ptr<VLMSDKRequestManager> makeSocketRequestManager() {
    auto manager = std::make_shared<SocketRequestManager>();
    vlmsdk::detail::attachMainQueueSource(manager);
    return manager;
}

void closeSocketRequestManager(const std::shared_ptr<VLMSDKRequestManager>& manager) {
    vlmsdk::detail::detachMainQueueSource(static_cast<const SocketRequestManager*>(manager.get()));
}

}  // namespace vlmsdk::bench
