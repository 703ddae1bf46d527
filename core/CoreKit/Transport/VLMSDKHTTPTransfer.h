#pragma once

#include <VLMSDKCoreKit/VLMSDKHTTPExchange.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManagerOptions.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vlmsdk::detail {

class VLMSDKJSONReader;
class VLMSDKHTTP1ReplyParser;

/// A request handed to the HTTP request manager, as it waits for a transfer.
struct VLMSDKHTTPPendingRequest {
    std::shared_ptr<const VLMSDKRequest> request;
    VLMSDKDataTaskCompletion completion;
    std::uint64_t id = 0;  ///< a number unique in the process for a request that is cancellable or keyed; else 0
    std::uint32_t attempt = 1;
};

/// The three values a reply handler receives.
struct VLMSDKHTTPReply {
    std::shared_ptr<const VLMSDKJSONReply> body;
    std::shared_ptr<const VLMSDKURLResponse> response;
    VLMErrorPtr error;
};

/// One libcurl easy handle, reused request after request, with the state of the request it carries.
/// Used only on the network thread.
class VLMSDKHTTPTransfer {
public:
    /// A transfer whose handle already holds the options every request shares, and `share` (TLS sessions
    /// its manager's connections resume); nullptr (and `error`) when libcurl cannot make one. `options` and
    /// `share` must outlive the transfer.
    static std::unique_ptr<VLMSDKHTTPTransfer> make(const VLMSDKHTTPRequestManagerOptions& options, CURLSH* share,
                                                    VLMErrorPtr* error);
    ~VLMSDKHTTPTransfer();

    VLMSDKHTTPTransfer(const VLMSDKHTTPTransfer&) = delete;
    VLMSDKHTTPTransfer& operator=(const VLMSDKHTTPTransfer&) = delete;

    /// The transfer whose handle is `handle`.
    static VLMSDKHTTPTransfer* from(CURL* handle);

    /// Takes a request that VLMSDKRequestCheck accepted, for the core's own HTTP/1.1 connection to send.
    void take(VLMSDKHTTPPendingRequest&& pending);
    /// Takes a request that VLMSDKRequestCheck accepted and loads it into the handle. On an error the transfer
    /// still holds the request: `release` hands back its completion.
    VLMErrorPtr load(VLMSDKHTTPPendingRequest&& pending);
    /// The Idempotency-Key value the taken request carries, if any.
    std::optional<std::string> idempotencyKey() const;

    /// The reply of the loaded request once libcurl reports `result`; parses the body with `reader`.
    /// Never throws.
    VLMSDKHTTPReply finish(CURLcode result, VLMSDKJSONReader& reader);
    /// The same for a request the core's own connection carried: `result` is what libcurl would have said,
    /// `reply` what was read (nullptr: nothing; its body and fields are moved out), `failure` the
    /// connection's own words. Never throws.
    VLMSDKHTTPReply finishFromWire(CURLcode result, VLMSDKHTTP1ReplyParser* reply, std::string_view failure,
                                   VLMSDKJSONReader& reader);

    /// The finished attempt as the exchange observer sees it (call between `finish` and `release`).
    VLMSDKHTTPExchange exchange(const VLMSDKHTTPReply& reply) const;

    /// The error that answers the loaded request when the manager shuts down first.
    VLMErrorPtr cancellationError() const;
    /// The error for a transfer the host cancelled: it says whether a POST or PATCH may have reached the
    /// service, which it may once any byte of it was sent.
    VLMErrorPtr hostCancellationError(bool sentAnything) const;
    /// Whether libcurl sent any byte of the loaded request.
    bool handleSentAnything() const;
    std::uint64_t requestID() const { return requestID_; }
    unsigned attempt() const { return attempt_; }
    const std::shared_ptr<const VLMSDKRequest>& request() const { return request_; }
    /// Whether the request carries an idempotency key (then it may be repeated like a GET).
    bool isKeyed() const { return keyed_; }

    /// Hands back the loaded request's completion and forgets the request, ready for the next one.
    VLMSDKDataTaskCompletion release();

    /// Connections libcurl opened for the finished request.
    std::size_t connectionsOpened() const;

    CURL* handle() const { return handle_; }
    bool isLive() const { return live_; }
    
    void setLive(bool live) { live_ = live; }

private:
    VLMSDKHTTPTransfer(const VLMSDKHTTPRequestManagerOptions& options, CURL* handle);
    bool setSharedOptions();

    static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* transfer);
    static int onSeek(void* transfer, curl_off_t offset, int origin);

    VLMSDKHTTPReply finishWith(CURLcode result, long statusCode, VLMSDKJSONReader& reader);
    VLMSDKHTTPReply replyFor(CURLcode result, long statusCode, VLMSDKJSONReader& reader);
    VLMErrorPtr transportError(CURLcode result, long statusCode) const;

    const VLMSDKHTTPRequestManagerOptions& options_;
    CURL* handle_;
    curl_slist* requestHeaders_ = nullptr;
    std::uint64_t requestID_ = 0;
    unsigned attempt_ = 1;
    bool keyed_ = false;
    std::string headerLines_;  // what requestHeaders_ holds, one line per '\n'
    std::shared_ptr<const VLMSDKRequest> request_;
    VLMSDKDataTaskCompletion completion_;
    std::string body_;
    std::size_t uploadOffset_ = 0;  // of the request body, as the read callback hands it to libcurl
    VLMSDKURLResponse::Headers replyHeaders_;
    std::string scratch_;
    std::chrono::steady_clock::time_point started_;
    bool live_ = false;
    const char* refusal_ = nullptr;  // why the header callback stopped the reply, in the parser's words
    std::size_t interimReplies_ = 0;
    std::size_t trailerFields_ = 0;
    bool interimHead_ = false;  // the head being read is a 1xx one
    bool inTrailer_ = false;    // the final head has ended: header lines now are trailer fields
    bool tooLarge_ = false;
    bool outOfMemory_ = false;
    char errorBuffer_[CURL_ERROR_SIZE] = {};
};

}  // namespace vlmsdk::detail
