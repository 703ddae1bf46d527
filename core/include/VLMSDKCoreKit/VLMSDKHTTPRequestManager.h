#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManagerOptions.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <cstddef>
#include <memory>

VLMSDK_API_BEGIN

/// The request manager that talks HTTP(S), reusing connections per host: through libcurl by default (names
/// to look up, TLS, proxies, HTTP/2 multiplexing where the server offers it); with the options' `transport`
/// set to HTTP1, plain http to an IP address goes over the core's own HTTP/1.1 connections instead. One
/// scheduler (queue, connection cap, deadlines, retries, cancellation) serves both.
///
/// Who drives the transfers is the options' `mode`: in the pumped mode the main thread, while the host pumps
/// VLMSDKMainQueue, so a reply is parsed, validated, mapped and delivered on the thread that will run the
/// completion, with no hand-off (and nothing moves while the host does not pump); in the threaded mode a
/// network thread of the manager's own, started with its first request. The default picks pumped while the
/// host pumps the queue itself and threaded once it has installed an executor (a UI loop).
///
/// Reply handlers are called exactly once per request, on the driving thread (only a request made after
/// shutdown is answered on the calling thread), with the reply body parsed there: an empty (or blank) body
/// gives no JSON and no error, a body that is not JSON or nested deeper than kVLMSDKMaximumJSONDepth gives a
/// `VLMErrorCode::InvalidResponse` error, and an HTTP error status is no error of the manager's (the
/// response validator judges statuses). A response is passed whenever the server sent a status line,
/// failures after it included. Redirects are not followed. Handlers should return quickly; an exception
/// thrown by one is caught and dropped.
///
/// Thread-safe: any thread may send requests, read statistics or shut down at any time.
class VLMSDKHTTPRequestManager final : public VLMSDKRequestManager {
public:
    /// The manager's settings.
    using Options = VLMSDKHTTPRequestManagerOptions;

    /// Counters since the manager was made.
    struct Statistics {
        std::size_t connectionsOpened = 0;  ///< new connections; a reused (keep-alive) connection adds none
        std::size_t requestsSent = 0;       ///< requests handed to the network
        std::size_t requestsCompleted = 0;  ///< reply handlers called (or requests answered without a handler)
    };

    /// A manager with the default options.
    VLMSDKHTTPRequestManager();
    /// A manager with `options`, fixed from now on.
    explicit VLMSDKHTTPRequestManager(Options options);
    /// Shuts down (see `shutdown`).
    ~VLMSDKHTTPRequestManager() override;

    VLMSDKHTTPRequestManager(const VLMSDKHTTPRequestManager&) = delete;
    VLMSDKHTTPRequestManager& operator=(const VLMSDKHTTPRequestManager&) = delete;

    /// Queues `request` and returns at once. A request is checked before any transport sees it, whatever
    /// made it: one that is null or carries a build error, uses a method other than GET, POST, PUT, PATCH
    /// and DELETE, has a URL that is not http(s) or holds a space or control byte, a header name that is
    /// not a token, a header value holding CR, LF or NUL, or a header the transport writes itself (Host,
    /// Content-Length, Transfer-Encoding, Connection, Keep-Alive, Upgrade, TE, Trailer) is answered once
    /// with an `InvalidRequest` error naming the part, control bytes escaped (its build error, for one that
    /// has it), and nothing is sent.
    /// After shutdown, `completion` is called at once, on the calling thread, with a `Cancelled` error.
    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override;

    /// The same, under `control`: a cancel answers the request at once on the driving thread with the
    /// cancelled error, whether it waits in the queue or is on the wire (its transfer is stopped there); a
    /// request already answered is not touched. `handlerOffMainQueue` sends the request through the
    /// network thread whatever the mode, so that it moves while the main thread is blocked.
    void performControlledRequest(std::shared_ptr<const VLMSDKRequest> request, const VLMSDKRequestControl& control,
                                  VLMSDKDataTaskCompletion completion) override;

    /// Sends `GET url`, without credentials, and drops whatever answers it: the connection it made stays open
    /// for `maximumIdleTime`, and the next request to that server goes on it (one made before this one ended
    /// may open another). Moves as requests do (see the modes).
    void prewarm(const std::string& url) override;
    /// True: a reply that names something other than `expectedReply` is answered with the
    /// `VLMErrorCode::ReplyMismatch` error, and its connection closed, on the driving thread.
    bool checksExpectedReplies() const override { return true; }

    /// Completes every request still queued or in flight exactly once with a `VLMErrorCode::Cancelled` error
    /// (on the calling thread, or on the driving thread if it is busy with the manager when called) and
    /// stops the network thread: no reply handler runs after it returns. Idempotent. Called from a reply
    /// handler, it only starts the shutdown, which finishes once the handler returns.
    void shutdown();

    /// The counters so far.
    Statistics statistics() const;
    /// Same as `statistics().connectionsOpened`.
    std::size_t connectionsOpened() const;

    /// The options the manager was made with.
    const Options& options() const;

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

VLMSDK_API_END
