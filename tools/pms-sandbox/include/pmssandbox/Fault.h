#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace pmssandbox {

/// A misbehaviour the sandbox applies to matching requests, to exercise a client's error paths.
///
/// Build one with a factory, then narrow it:
///     Fault::forceStatus(503).matching("GET", "guest/reservations").times(2)
/// A fault applies before authentication and routing. A delay may be combined with any action:
///     Fault::dropConnection().withDelay(std::chrono::milliseconds(50))
class Fault {
public:
    enum class Action {
        None,            ///< Only the delay; the request is then answered normally.
        DropConnection,  ///< Shut the connection down without acting or sending any reply.
        DropReply,       ///< Act on the request as usual (and commit), then shut the connection down unanswered.
        ForceStatus,     ///< Answer the given status with a JSON error body, without acting.
        NotJson,         ///< Answer 200 with a body that is not JSON.
    };

    /// Holds the reply back by `delay`, then answers normally.
    static Fault delay(std::chrono::milliseconds delay);
    /// Closes the connection once the request has been read, without answering.
    static Fault dropConnection();
    /// Serves the request, changes included, then closes the connection before the reply is sent: the
    /// client cannot tell whether it was acted on.
    static Fault dropReply();
    /// Answers `status` (400..599) with {"error": {"code", "message"}}; other values become 500.
    static Fault forceStatus(int status);
    /// Answers 200 with `body` served as text/html.
    static Fault notJson(std::string body = "<html>oops</html>");

    /// Copy that also waits `delay` before acting.
    [[nodiscard]] Fault withDelay(std::chrono::milliseconds delay) const;
    /// Copy whose forced status also carries `Retry-After: <seconds>` (0: no such header).
    [[nodiscard]] Fault withRetryAfter(std::chrono::seconds seconds) const;
    /// Copy that only hits requests with this method (empty: any) whose path, taken relative to the
    /// base URL and without a leading slash, starts with `pathPrefix` (empty: any).
    [[nodiscard]] Fault matching(std::string method, std::string pathPrefix) const;
    /// Copy that hits only the next `count` matching requests; a count below 1 means until cleared.
    [[nodiscard]] Fault times(int count) const;

    Action action() const { return action_; }
    std::chrono::milliseconds delayDuration() const { return delay_; }
    std::chrono::seconds retryAfter() const { return retryAfter_; }
    int status() const { return status_; }
    const std::string& body() const { return body_; }
    const std::string& method() const { return method_; }
    const std::string& pathPrefix() const { return pathPrefix_; }
    /// Matching requests still to hit; -1 means until cleared.
    int remaining() const { return remaining_; }

    /// Whether a request with `method` and base-relative `path` is hit by this fault.
    bool matches(std::string_view method, std::string_view path) const;

private:
    Action action_ = Action::None;
    std::chrono::milliseconds delay_{0};
    std::chrono::seconds retryAfter_{0};
    int status_ = 500;
    std::string body_;
    std::string method_;
    std::string pathPrefix_;
    int remaining_ = -1;
};

}  // namespace pmssandbox
