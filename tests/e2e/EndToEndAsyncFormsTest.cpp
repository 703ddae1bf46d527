// The future and coroutine forms of all eight operations, over HTTP against the local reservation service.
#include "EndToEndSupport.h"

#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

namespace e2e {
namespace {

// One line per outcome, whatever the record, so that one table holds every operation.
std::string line(const std::shared_ptr<VLMSDKReservation>& r) {
    return r ? "reservation " + r->velmoraID().value_or("?") + " " + r->statusStringRepresentation().value_or("?")
             : "no reservation";
}
std::string line(const std::shared_ptr<VLMSDKFolio>& f) {
    return f ? "folio " + f->folioID().value_or("?") + " " + std::to_string(f->deliverables().size()) : "no folio";
}
std::string line(const std::shared_ptr<VLMSDKPayForReservationResult>& p) {
    return p && p->paymentTransaction() ? "payment " + p->paymentTransaction()->status().value_or("?") + " " +
                                              line(p->reservation())
                                        : "no payment";
}
std::string line(bool done) { return done ? "done" : "not done"; }
template <class T>
std::string line(const VLMSDKResult<T>& result) {
    if (!result.error()) return line(result.value());
    return "error HTTP " + std::to_string(result.error()->httpStatusCode().value_or(0));
}

enum class Form { Future, Coroutine };

std::atomic<int> resumes{0};

template <class Operation, class... Args>
VLMSDKTask awaitInto(std::shared_ptr<std::string> into, Operation operation, VLMSDKAPIManager api, Args... args) {
    const auto result = co_await VLMSDKAwait(operation, api, args...);
    ++resumes;
    *into = VLMSDKMainQueue::isMainThread() ? line(result) : "resumed off the main thread";
}

// Runs one operation in one form to its outcome's line.
using Runner = std::function<std::string(const VLMSDKAPIManager&, Form)>;
template <class Operation, class... Args>
Runner run(Operation operation, Args... args) {
    return [=](const VLMSDKAPIManager& api, Form form) -> std::string {
        if (form == Form::Future) {
            auto future = VLMSDKFuture(operation, api, args...);
            // The main thread blocks, not pumping the main queue.
            return future.wait_for(kLimit) == std::future_status::ready ? line(future.get()) : "no answer";
        }
        auto into = std::make_shared<std::string>();
        awaitInto(into, operation, api, args...);
        VLMSDKMainQueue::runUntil([&] { return !into->empty(); }, kLimit);
        return *into;
    };
}

template <class Request>
std::shared_ptr<Request> request(std::string id) {
    auto request = std::make_shared<Request>();
    request->setReservationID(std::move(id));
    return request;
}

E2E_SUITE_ON_EACH_TRANSPORT(EndToEndAsyncFormsTest);

TEST_P(EndToEndAsyncFormsTest, BothFormsRunEveryOperationToItsResult) {
    auto created = std::make_shared<VLMSDKCreateReservationRequestInfo>();
    created->setExternalReservationID("HLI-48213");
    created->setVenueVelmoraID("ven_harborlight");
    created->setReservationistLastName("Quillfeather");
    auto charged = request<VLMSDKUpdateReservationMasterBillRequestInfo>("rsv_0001");
    charged->setVelmoraDeliverables({std::make_shared<VLMSDKDeliverableCountableItem>("itm_breakfast", 2)});
    auto paid = request<VLMSDKPayForReservationRequestInfo>("rsv_0001");
    paid->setAmount(36.00);
    paid->setCurrencyCode("USD");
    paid->setCreditCardID("card_ada_visa_4242");
    const std::string id = "rsv_0001";
    const struct Row {
        const char* name;
        Runner run;
        std::string expected;
    } rows[] = {
        {"create", run(createReservationWithRequest, created), "reservation rsv_0001 reserved"},
        {"fetch", run(fetchReservationWithID, id), "reservation rsv_0001 reserved"},
        {"confirm", run(confirmReservationWithID, id, true), "reservation rsv_0001 reserved"},
        {"check-in", run(performMobileCheckinForReservationWithID, id), "reservation rsv_0001 in_house"},
        {"charge", run(updateReservationMasterBillWithRequest, charged), "folio fol_0001 1"},
        {"folio", run(fetchReservationMasterBill, id), "folio fol_0001 1"},
        {"pay", run(payForReservationWithRequest, paid), "payment succeeded reservation rsv_0001 in_house"},
        {"check-out", run(performMobileCheckoutForReservationWithID, id), "done"},
        {"an unknown reservation", run(fetchReservationWithID, std::string("rsv_none")), "error HTTP 404"},
    };
    using Mode = VLMSDKHTTPRequestManagerOptions::Mode;
    // A future is waited with the main thread blocked in both modes: its request goes through the network
    // thread even when the manager is pumped.
    for (const auto& [form, mode] : {std::pair{Form::Future, Mode::Pumped}, std::pair{Form::Future, Mode::Threaded},
                                     std::pair{Form::Coroutine, Mode::Pumped}, std::pair{Form::Coroutine, Mode::Threaded}}) {
        SCOPED_TRACE(std::string(form == Form::Future ? "future" : "coroutine") +
                     (mode == Mode::Pumped ? ", pumped" : ", threaded"));
        auto sandbox = startSandbox();
        Client client(sandbox->baseUrl(), kSandboxToken, transport(), mode);
        resumes = 0;
        for (const Row& row : rows) EXPECT_EQ(row.run(client.api(), form), row.expected) << row.name;
        client.settle();
        EXPECT_EQ(resumes.load(), form == Form::Coroutine ? static_cast<int>(std::size(rows)) : 0);
        EXPECT_EQ(sandbox->requestCount(), std::size(rows));
    }
}

}  // namespace
}  // namespace e2e
