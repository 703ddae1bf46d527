#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKAPIManager.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <atomic>
#include <coroutine>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

VLMSDK_API_BEGIN

/// \file
/// The reservation operations as futures and as coroutines, for any of the eight operations of
/// VLMSDKAPIManager+Reservation.h and their arguments, e.g.
/// `VLMSDKFuture(fetchReservationWithID, api, id)` or `co_await VLMSDKAwait(fetchReservationWithID, api, id)`.
/// Either form gives the operation's completion arguments as one VLMSDKResult, exactly once.

/// One operation's outcome: the record (mobile check-out: the success flag) or the error. On an error the
/// value is `T{}`; without one the value is what the operation delivered (a master-bill update refused for
/// an absent request delivers neither, see its operation).
template <class T>
class VLMSDKResult {
public:
    /// Holds `error`, and `value` only when there is no error (`T{}` otherwise).
    VLMSDKResult(T value, VLMErrorPtr error) : value_(error ? T{} : std::move(value)), error_(std::move(error)) {}

    /// True when the operation succeeded.
    explicit operator bool() const noexcept { return !error_; }
    /// The record (mobile check-out: the success flag); `T{}` on an error.
    ///@{
    const T& value() const& noexcept { return value_; }
    T&& value() && noexcept { return std::move(value_); }
    ///@}
    /// The error, or nullptr when the operation succeeded.
    const VLMErrorPtr& error() const noexcept { return error_; }

private:
    T value_;
    VLMErrorPtr error_;
};

namespace vlmsdk::detail {

template <class Completion>
struct CompletionValue;
template <class T>
struct CompletionValue<std::function<void(T, VLMErrorPtr)>> {
    using type = T;
};

// An operation is `void(const VLMSDKAPIManager&, arguments..., std::function<void(T, VLMErrorPtr)>)`.
template <class Operation>
struct OperationValue;
template <class... Parameters>
struct OperationValue<void (*)(Parameters...)> {
    using type = typename CompletionValue<
        std::remove_cvref_t<std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>>>>::type;
};

inline void resumeOnMainThread(std::coroutine_handle<> handle) {
    if (VLMSDKMainQueue::isMainThread()) {
        handle.resume();
    } else {
        VLMSDKMainQueue::async([handle] { handle.resume(); });
    }
}

}  // namespace vlmsdk::detail

/// What `T` an operation's VLMSDKResult holds (e.g. `std::shared_ptr<VLMSDKReservation>`).
template <class Operation>
using VLMSDKOperationValue = typename vlmsdk::detail::OperationValue<std::decay_t<Operation>>::type;

/// Starts `operation(api, args...)` and answers a future of its result, set exactly once on the thread that
/// handled the reply (the calling thread for an argument refused at once), never through the main queue:
/// the operation runs through `api.withHandlerOffMainQueue()`, which VLMSDKHTTPRequestManager drives on its
/// network thread in every mode. So the main thread may block on the future without deadlocking (a request
/// manager of the host's own must likewise move such a request without the main queue). Callable from any
/// thread.
template <class Operation, class... Args>
[[nodiscard]] std::future<VLMSDKResult<VLMSDKOperationValue<Operation>>> VLMSDKFuture(Operation operation,
                                                                                    const VLMSDKAPIManager& api,
                                                                                    Args&&... args) {
    using T = VLMSDKOperationValue<Operation>;
    auto promise = std::make_shared<std::promise<VLMSDKResult<T>>>();
    auto future = promise->get_future();
    operation(api.withHandlerOffMainQueue(), std::forward<Args>(args)...,
              [promise](T value, VLMErrorPtr error) {
                  promise->set_value(VLMSDKResult<T>(std::move(value), std::move(error)));
              });
    return future;
}

/// What `co_await VLMSDKAwait(...)` waits on. The operation starts when awaited (await it once); the
/// coroutine then resumes exactly once, on the main thread, with the operation's VLMSDKResult: within the
/// main-queue task that delivers the completion, or, when the outcome was there before the coroutine
/// suspended, at once on the main thread (through the main queue when it awaited on another thread). A
/// cancel of the API manager's cancellation resumes it with the cancelled error (see VLMSDKCancellation),
/// as soon as the request manager answers the cancelled request. The coroutine must not be destroyed
/// while it waits.
template <class T>
class VLMSDKAwaitable {
public:
    /// The operation's completion, which the awaitable hands to `start`.
    using Completion = std::function<void(T, VLMErrorPtr)>;

    /// An awaitable that calls `start` with its completion when it is awaited, not before.
    explicit VLMSDKAwaitable(std::function<void(Completion)> start) : start_(std::move(start)) {}
    /// Movable, so that VLMSDKAwait can return it; never copied.
    ///@{
    VLMSDKAwaitable(VLMSDKAwaitable&&) noexcept = default;
    VLMSDKAwaitable(const VLMSDKAwaitable&) = delete;  // one operation, awaited once
    VLMSDKAwaitable& operator=(const VLMSDKAwaitable&) = delete;
    ///@}

    /// What `co_await` calls: never ready before it starts; suspending starts the operation (and goes on at
    /// once when its outcome is already there on the main thread); resuming gives the result.
    ///@{
    bool await_ready() const noexcept { return false; }

    bool await_suspend(std::coroutine_handle<> handle) {
        state_->handle = handle;
        std::exchange(start_, nullptr)([state = state_](T value, VLMErrorPtr error) {
            state->result.emplace(std::move(value), std::move(error));
            // The second of the two sides resumes: await_suspend may not have returned yet.
            if (state->arrived.exchange(true, std::memory_order_acq_rel)) {
                vlmsdk::detail::resumeOnMainThread(state->handle);
            }
        });
        if (!state_->arrived.exchange(true, std::memory_order_acq_rel)) return true;
        if (VLMSDKMainQueue::isMainThread()) return false;  // done already: go on without suspending
        vlmsdk::detail::resumeOnMainThread(handle);
        return true;
    }

    VLMSDKResult<T> await_resume() { return std::move(*state_->result); }
    ///@}

private:
    // Shared with the completion, which may outlive the coroutine's frame.
    struct State {
        std::coroutine_handle<> handle;
        std::optional<VLMSDKResult<T>> result;
        std::atomic<bool> arrived{false};
    };
    std::function<void(Completion)> start_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// `operation(api, args...)` as an awaitable (see VLMSDKAwaitable); the arguments are copied until it starts.
template <class Operation, class... Args>
[[nodiscard]] VLMSDKAwaitable<VLMSDKOperationValue<Operation>> VLMSDKAwait(Operation operation,
                                                                         const VLMSDKAPIManager& api, Args&&... args) {
    using Awaitable = VLMSDKAwaitable<VLMSDKOperationValue<Operation>>;
    return Awaitable([operation, api, arguments = std::make_tuple(std::forward<Args>(args)...)](
                         typename Awaitable::Completion completion) mutable {
        std::apply([&](auto&... values) { operation(api, values..., std::move(completion)); }, arguments);
    });
}

/// A coroutine return type for hosts that have none of their own: the coroutine starts at once on the
/// calling thread (eager), nothing waits for it or can stop it (detached), and its frame is freed when it
/// ends. An exception escaping it ends the program, so catch inside.
struct VLMSDKTask {
    /// What the compiler asks of a coroutine returning VLMSDKTask.
    struct promise_type {
        /// Runs without suspending at its start or its end (its frame is then freed); an escaping exception
        /// calls std::terminate.
        ///@{
        VLMSDKTask get_return_object() noexcept { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept { std::terminate(); }
        ///@}
    };
};

VLMSDK_API_END
