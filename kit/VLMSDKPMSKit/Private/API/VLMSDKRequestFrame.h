#pragma once

#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKRequestInfo.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKAPIManager.h>
#include <VLMSDKCoreKit/VLMSDKAPIManagerResponseValidator.h>
#include <VLMSDKCoreKit/VLMSDKAsserts.h>
#include <VLMSDKCoreKit/VLMSDKCancellation.h>
#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKCoreKit/VLMSDKOperationTelemetry.h>
#include <VLMSDKCoreKit/VLMSDKRemoteLogger.h>
#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The one frame every reservation operation runs through: argument check, request-description check,
/// one request built and sent, the reply validated and finished into an outcome, and exactly one delivery
/// to the completion on the main thread. `Result` is what the completion receives first (a record, or a
/// success flag); `Result{}` is what it receives on failure.
template <class Result>
class VLMSDKRequestFrame {
public:
    using Completion = std::function<void(Result, VLMErrorPtr)>;
    using Outcome = std::pair<Result, VLMErrorPtr>;
    /// Turns a reply that passed validation into the outcome. Runs on the reply thread; stateless.
    using Finish = Outcome (*)(const VLMSDKJSONReply& reply);

    enum class Method { GET, POST, PATCH };

    /// The fixed values of one operation.
    struct Operation {
        const char* name;  ///< as telemetry shows it, e.g. "fetchReservation"
        Method method;
        const char* passesLogMessage;
        const char* failsLogMessage;
        std::vector<std::string> requiredJSONKeys;  ///< empty: the validator is given none
        Finish finish;
        /// Whether the reply names the reservation asked for (`reservation.id`): checked against the
        /// identifier, so that a reply about another reservation is never delivered as this one's.
        bool replyNamesReservation = false;
    };

    /// Calls `completion` at once when on the main thread, otherwise posts it there (always, even when
    /// the completion is absent). Never calls it off the main thread.
    static void deliver(Completion completion, Result result, VLMErrorPtr error) {
        if (VLMSDKMainQueue::isMainThread()) {
            if (completion) completion(std::move(result), std::move(error));
            return;
        }
        VLMSDKMainQueue::async([completion = std::move(completion), result = std::move(result),
                                error = std::move(error)]() mutable {
            if (completion) completion(std::move(result), std::move(error));
        });
    }

    /// `deliver` under `control`: on the calling thread when the handler runs off the main queue; and once a
    /// cancel has come, (Result{}, the cancelled error for `what`) instead of what was to be delivered,
    /// decided when the completion runs, so that a cancel before that moment is never lost.
    static void deliver(const VLMSDKRequestControl& control, const std::string& what, bool serviceMayHaveActed,
                        Completion completion, Result result, VLMErrorPtr error) {
        if (!control.cancellation && !control.handlerOffMainQueue) {
            deliver(std::move(completion), std::move(result), std::move(error));
            return;
        }
        auto run = [cancellation = control.cancellation, what, serviceMayHaveActed, completion = std::move(completion),
                    result = std::move(result), error = std::move(error)]() mutable {
            if (cancellation && cancellation->isCancelled() && !isCancelled(error)) {
                result = Result{};
                error = VLMSDKCancellation::cancelledError(what, serviceMayHaveActed);
            }
            if (completion) completion(std::move(result), std::move(error));
        };
        if (control.handlerOffMainQueue || VLMSDKMainQueue::isMainThread()) {
            run();
        } else {
            VLMSDKMainQueue::async(std::move(run));
        }
    }

    /// The absent-argument path: assertion, then the required-argument error named `checkText` by the
    /// delivery rule. On the main thread no error is built when there is no completion to receive it.
    static void failAbsentArgument(const VLMSDKAPIManager& manager, const char* checkText, const Completion& completion,
                                   VLMSDKSourceLocation site = VLMSDKSourceLocation::current()) {
        VLMSDKAsserts::handleParameterAssert(checkText, std::nullopt, site);
        // A caller that blocks the main thread gets its outcome here, on its own thread.
        if (VLMSDKMainQueue::isMainThread() || manager.requestControl().handlerOffMainQueue) {
            if (!completion) return;
            completion(Result{}, VLMError::requiredArgumentErrorWithName(checkText, std::nullopt, site.function,
                                                                         site.file));
            return;
        }
        VLMSDKMainQueue::async([completion, name = std::string(checkText), file = site.file] {
            if (!completion) return;
            const auto task = VLMSDKSourceLocation::current();
            completion(Result{}, VLMError::requiredArgumentErrorWithName(name, std::nullopt, task.function, file));
        });
    }

    /// Asks `requestInfo` whether it is valid. When not: writes "`logFormat`" with the error's developer
    /// message at level 1 to the remote and then the console logger, delivers (Result{}, the error) and
    /// answers false.
    static bool validateLogging(const VLMSDKAPIManager& manager, const VLMSDKRequestInfo& requestInfo,
                                const char* logFormat, const Completion& completion,
                                VLMSDKSourceLocation site = VLMSDKSourceLocation::current()) {
        VLMErrorPtr validationError;
        if (requestInfo.isValid(&validationError)) return true;
        logInvalid(VLMSDKRemoteLogger::sharedLogger(), logFormat, validationError, site);
        logInvalid(VLMSDKConsoleLogger::sharedLogger(), logFormat, validationError, site);
        deliverRefusal(manager, completion, std::move(validationError));
        return false;
    }

    /// Asks `requestInfo` (which may be absent) whether it is valid. When not: reports `assertText` to the
    /// assertion handler, delivers (Result{}, the error, nothing for an absent request) and answers false.
    static bool validateAsserting(const VLMSDKAPIManager& manager, const VLMSDKRequestInfo* requestInfo,
                                  const char* assertText, const Completion& completion,
                                  VLMSDKSourceLocation site = VLMSDKSourceLocation::current()) {
        VLMErrorPtr validationError;
        if (requestInfo && requestInfo->isValid(&validationError)) return true;
        VLMSDKAsserts::handleParameterAssert(assertText, std::nullopt, site);
        deliverRefusal(manager, completion, std::move(validationError));
        return false;
    }

    /// Builds the request with the operation's method on `path` with `parameters`, hands it to the
    /// request manager (under the API manager's request control, when it has one) and returns. The reply
    /// handler holds `completion` and nothing else it does not need. `routeFormat` is the path as telemetry
    /// shows it, "%@" standing for the identifier (nullptr: `path` itself).
    static void send(const VLMSDKAPIManager& manager, const Operation& operation, const std::string& path,
                     const std::optional<VLMSDKJSON>& parameters, Completion completion,
                     std::shared_ptr<const VLMSDKReplyExpectation> expected = nullptr,
                     const char* routeFormat = nullptr) {
        const auto& builder = manager.requestBuilder();
        const VLMSDKRequestControl& control = manager.requestControl();
        std::shared_ptr<const VLMSDKRequest> request;
        switch (operation.method) {
        case Method::GET: request = builder->GETWithPath(path, parameters); break;
        case Method::POST: request = builder->POSTWithPath(path, parameters); break;
        case Method::PATCH: request = builder->PATCHWithPath(path, parameters); break;
        }
        // Only with an observer or a trace context: otherwise an operation pays nothing for telemetry.
        std::shared_ptr<const VLMSDKOperationTelemetry> telemetry;
        if (manager.telemetryObserver() || manager.traceContext()) [[unlikely]] {
            telemetry = VLMSDKOperationTelemetry::start(operation.name, methodName(operation.method),
                                                        pathWithIdentifier(routeFormat ? routeFormat : path.c_str(), "{id}"),
                                                        manager.traceContext(), manager.telemetryObserver());
            if (request && telemetry->span) request = request->withHeader("traceparent", telemetry->span->traceparent());
            telemetry->reportStarted();
        }
        // What the reply must name, and the request it answers (for the words of a mismatch): looked at here
        // only when the request manager does not look itself.
        Expected expectedReply;
        if (expected && !manager.requestManager()->checksExpectedReplies()) expectedReply = {expected, request};
        if (!control.cancellation && !control.handlerOffMainQueue && !telemetry) {
            // The manager calls this exactly once, so it may hand the completion on rather than copy it.
            auto handler = [operation = &operation, expectedReply = std::move(expectedReply),
                            completion = std::move(completion)](std::shared_ptr<const VLMSDKJSONReply> json,
                                                                std::shared_ptr<const VLMSDKURLResponse> response,
                                                                VLMErrorPtr error) mutable {
                handleReply(*operation, nullptr, expectedReply, std::move(completion), std::move(json),
                            std::move(response), std::move(error));
            };
            if (!expected) {
                manager.requestManager()->performDataTaskRequest(std::move(request), std::move(handler));
                return;
            }
            VLMSDKRequestControl checked;
            checked.expectedReply = std::move(expected);
            manager.requestManager()->performControlledRequest(std::move(request), checked, std::move(handler));
            return;
        }
        VLMSDKRequestControl checked = control;
        checked.telemetry = std::move(telemetry);
        auto controlled = std::make_shared<const Controlled>(
            Controlled{checked, request ? request->method() + " " + request->redactedURL() : std::string("A request")});
        checked.expectedReply = std::move(expected);
        manager.requestManager()->performControlledRequest(
            std::move(request), checked,
            [operation = &operation, controlled, expectedReply = std::move(expectedReply),
             completion = std::move(completion)](std::shared_ptr<const VLMSDKJSONReply> json,
                                                 std::shared_ptr<const VLMSDKURLResponse> response,
                                                 VLMErrorPtr error) mutable {
                handleReply(*operation, controlled.get(), expectedReply, std::move(completion), std::move(json),
                            std::move(response), std::move(error));
            });
    }

    /// `send` on `pathFormat` with `identifier` put in place of "%@" as it is (the request builder escapes
    /// what a path cannot hold), except that '/' or an empty identifier would make it name another route (the
    /// collection's, for an empty one): such an identifier is refused with the required-argument error named
    /// `argumentName`, by the delivery rule, and nothing is sent.
    static void sendForIdentifier(const VLMSDKAPIManager& manager, const Operation& operation, const char* pathFormat,
                                  const std::string& identifier, const char* argumentName,
                                  const std::optional<VLMSDKJSON>& parameters, Completion completion,
                                  VLMSDKSourceLocation site = VLMSDKSourceLocation::current()) {
        if (identifier.empty() || identifier.find('/') != std::string::npos) {
            deliverRefusal(manager, std::move(completion),
                    VLMError::requiredArgumentErrorWithName(
                        argumentName,
                        identifier.empty()
                            ? "the identifier is empty, which would send the request to the collection's route; "
                              "nothing was sent"
                            : "the identifier '" + identifier +
                                  "' holds '/', which would send the request to another route; nothing was sent",
                        site.function, site.file));
            return;
        }
        send(manager, operation, pathWithIdentifier(pathFormat, identifier), parameters, std::move(completion),
             operation.replyNamesReservation
                 ? std::make_shared<const VLMSDKReplyExpectation>(VLMSDKReplyExpectation{"reservation", "id", identifier})
                 : nullptr,
             pathFormat);
    }

    /// "path/%@" with the identifier put in place, as it is.
    static std::string pathWithIdentifier(const char* format, const std::string& identifier) {
        const std::string_view text(format);
        const auto at = text.find("%@");
        if (at == std::string_view::npos) return std::string(text);
        std::string path;
        path.reserve(text.size() + identifier.size());
        path.append(text.substr(0, at)).append(identifier).append(text.substr(at + 2));
        return path;
    }

private:
    /// (Result{}, `error`) for a request refused before it was sent, by the delivery rule, or at once when the
    /// caller blocks the main thread (handler off the main queue).
    static void deliverRefusal(const VLMSDKAPIManager& manager, Completion completion, VLMErrorPtr error) {
        if (manager.requestControl().handlerOffMainQueue) {
            if (completion) completion(Result{}, std::move(error));
            return;
        }
        deliver(std::move(completion), Result{}, std::move(error));
    }

    /// What a controlled request's reply handler needs besides the reply: the control, and the request's
    /// description for a cancelled error.
    struct Controlled {
        VLMSDKRequestControl control;
        std::string what;
    };

    struct Expected {
        std::shared_ptr<const VLMSDKReplyExpectation> expectation;
        std::shared_ptr<const VLMSDKRequest> request;
    };

    static bool isCancelled(const VLMErrorPtr& error) { return error && error->code() == VLMErrorCode::Cancelled; }

    static const char* methodName(Method method) {
        switch (method) {
        case Method::GET: return "GET";
        case Method::POST: return "POST";
        case Method::PATCH: return "PATCH";
        }
        return "GET";
    }

    // `controlled` is null for a request without control (the common case: nothing extra is kept).
    static void handleReply(const Operation& operation, const Controlled* controlled, const Expected& expected,
                            Completion completion,
                            std::shared_ptr<const VLMSDKJSONReply> json, std::shared_ptr<const VLMSDKURLResponse> response,
                            VLMErrorPtr error) {
        // The validator keeps the response alive until the outcome is delivered.
        const VLMSDKURLResponse* replied = response.get();
        const auto finishWith = [&](Result result, VLMErrorPtr failure) {
            // The service's id of the request, for the support ticket an error may become.
            if (failure && replied) {
                if (auto requestID = replied->requestID())
                    failure = VLMError::withRequestID(failure, std::move(*requestID));
            }
            if (controlled && controlled->control.telemetry) controlled->control.telemetry->reportEnded(replied, failure);
            if (!controlled) {
                deliver(std::move(completion), std::move(result), std::move(failure));
                return;
            }
            // A reply came, so a POST or PATCH has reached the service.
            deliver(controlled->control, controlled->what, operation.method != Method::GET, std::move(completion),
                    std::move(result), std::move(failure));
        };
        // The validator lives only for this check: on the stack, not shared.
        VLMSDKAPIManagerResponseValidator validator(std::move(response), json, std::move(error));
        validator.setPassesLogMessage(operation.passesLogMessage);
        validator.setFailsLogMessage(operation.failsLogMessage);
        if (!operation.requiredJSONKeys.empty()) validator.setRequiredJSONKeys(operation.requiredJSONKeys);
        VLMErrorPtr validationError;
        if (!validator.validate(&validationError)) {
            finishWith(Result{}, std::move(validationError));
            return;
        }
        // A request manager that does not check it may hand over a reply about another reservation.
        if (json && expected.expectation && expected.expectation->isContradictedBy(*json)) {
            const std::string what = expected.request ? expected.request->method() + " " + expected.request->redactedURL()
                                                      : std::string("the request");
            finishWith(Result{}, expected.expectation->mismatchError(*json, what, false));
            return;
        }
        static const VLMSDKJSONReply noReply{VLMSDKJSON()};
        auto [result, failure] = operation.finish(json ? *json : noReply);
        finishWith(std::move(result), std::move(failure));
    }

    static void logInvalid(VLMSDKLogger& logger, const char* format, const VLMErrorPtr& error,
                           const VLMSDKSourceLocation& site) {
        const std::string message = error ? error->developerMessage() : std::string("(null)");
        logger.logWithLevel(1, site.file, site.line, site.function, format,
                            message.c_str());
    }
};
