#include "VLMSDKHTTPTransfer.h"

#include "../JSON/VLMSDKJSONReader.h"
#include "VLMSDKHTTP1ReplyParser.h"

#include <VLMSDKCoreKit/VLMSDKCancellation.h>

#include <cstdio>
#include <cstring>
#include <random>
#include "../VLMSDKHeaderLookup.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <string_view>

namespace vlmsdk::detail {

namespace {

// As the core's own reply parser allows.
constexpr std::size_t kInterimReplies = 5;
constexpr std::size_t kTrailerFields = 64;
// Reply buffers up to this size stay with the handle for the next request; larger ones are given back.
constexpr std::size_t kKeptBodyCapacity = 64 * 1024;
constexpr std::size_t kExcerptLength = 80;

enum class Method { GET, POST, PUT, PATCH, DELETE, Unsupported };

Method methodOf(const std::string& name) {
    if (name == "GET") return Method::GET;
    if (name == "POST") return Method::POST;
    if (name == "PATCH") return Method::PATCH;
    if (name == "PUT") return Method::PUT;
    if (name == "DELETE") return Method::DELETE;
    return Method::Unsupported;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && equalsIgnoringASCIICase(text.substr(0, prefix.size()), prefix);
}

bool isHTTPS(const std::string& url) { return startsWithIgnoringCase(url, "https://"); }

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view space = " \t\r\n";
    const auto first = text.find_first_not_of(space);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

long clampedMilliseconds(std::chrono::milliseconds duration) {
    if (duration.count() <= 0) return 0;
    return static_cast<long>(std::min<std::chrono::milliseconds::rep>(duration.count(), LONG_MAX));
}

// libcurl counts an idle connection's age in whole seconds; zero means no limit here.
long idleSeconds(std::chrono::milliseconds limit) {
    if (limit.count() <= 0) return LONG_MAX;
    return std::max(1L, clampedMilliseconds(limit) / 1000);
}

// The typed curl_easy_setopt check cannot see through a template, so each call site passes the exact type.
template <typename Value>
bool setOption(CURL* handle, CURLoption option, Value value) {
    return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

// Errors name the request without any password its URL carries.
std::string describe(const VLMSDKRequest& request) { return request.method() + " " + request.redactedURL(); }

// A short, printable piece of a reply body for an error message.
std::string excerptOf(const std::string& body) {
    std::string excerpt = body.substr(0, kExcerptLength);
    for (char& c : excerpt) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F) c = ' ';
    }
    if (body.size() > kExcerptLength) excerpt += "...";
    return excerpt;
}

// Random once per process, so that keys of different runs and managers never meet at the service.
const std::string& idempotencyPrefix() {
    static const std::string prefix = [] {
        std::random_device random;
        char text[40];
        std::snprintf(text, sizeof text, "%08x%08x%08x%08x-", random(), random(), random(), random());
        return std::string(text);
    }();
    return prefix;
}

VLMErrorPtr networkError(VLMErrorCode code, std::string message, const char* function) {
    return VLMError::errorWithCode(code, kVLMSDKNetworkErrorDomain, std::move(message), function, __FILE__);
}

}  // namespace

std::unique_ptr<VLMSDKHTTPTransfer> VLMSDKHTTPTransfer::make(const VLMSDKHTTPRequestManagerOptions& options,
                                                             CURLSH* share, VLMErrorPtr* error) {
    CURL* handle = curl_easy_init();
    if (!handle) {
        *error = networkError(VLMErrorCode::Transport, "libcurl could not make a transfer handle.", __func__);
        return nullptr;
    }
    std::unique_ptr<VLMSDKHTTPTransfer> transfer(new VLMSDKHTTPTransfer(options, handle));
    if (!transfer->setSharedOptions() || (share && !setOption(handle, CURLOPT_SHARE, share))) {
        *error = networkError(VLMErrorCode::InvalidRequest,
                              "libcurl refused the request manager's options (CA file, proxy or limits).", __func__);
        return nullptr;
    }
    return transfer;
}

VLMSDKHTTPTransfer::VLMSDKHTTPTransfer(const VLMSDKHTTPRequestManagerOptions& options, CURL* handle)
    : options_(options), handle_(handle) {}

VLMSDKHTTPTransfer::~VLMSDKHTTPTransfer() {
    curl_easy_cleanup(handle_);
    curl_slist_free_all(requestHeaders_);
}

bool VLMSDKHTTPTransfer::setSharedOptions() {
    const auto maximumReply = static_cast<curl_off_t>(
        std::min<std::uintmax_t>(options_.maximumReplySize, static_cast<std::uintmax_t>(INT64_MAX)));
    bool ok = setOption(handle_, CURLOPT_PRIVATE, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_NOSIGNAL, 1L) &&
              setOption(handle_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS)) &&
              setOption(handle_, CURLOPT_PROTOCOLS_STR, "http,https") &&
              // The request builder has made the path exactly as it must go out; no dot segment is merged away.
              setOption(handle_, CURLOPT_PATH_AS_IS, 1L) &&
              setOption(handle_, CURLOPT_CONNECTTIMEOUT_MS, clampedMilliseconds(options_.connectTimeout)) &&
              setOption(handle_, CURLOPT_MAXAGE_CONN, idleSeconds(options_.maximumIdleTime)) &&
              setOption(handle_, CURLOPT_TIMEOUT_MS, clampedMilliseconds(options_.requestTimeout)) &&
              setOption(handle_, CURLOPT_MAXFILESIZE_LARGE, maximumReply) &&
              setOption(handle_, CURLOPT_SSL_VERIFYPEER, options_.verifyPeer ? 1L : 0L) &&
              setOption(handle_, CURLOPT_SSL_VERIFYHOST, options_.verifyHost ? 2L : 0L) &&
              setOption(handle_, CURLOPT_ERRORBUFFER, static_cast<char*>(errorBuffer_)) &&
              setOption(handle_, CURLOPT_HEADERFUNCTION, &VLMSDKHTTPTransfer::onHeader) &&
              setOption(handle_, CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_WRITEFUNCTION, &VLMSDKHTTPTransfer::onBody) &&
              setOption(handle_, CURLOPT_WRITEDATA, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_READFUNCTION, &VLMSDKHTTPTransfer::onRead) &&
              setOption(handle_, CURLOPT_READDATA, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_SEEKDATA, static_cast<void*>(this)) &&
              // A proxy's answer to CONNECT is not the service's head: the callback sees only the latter.
              setOption(handle_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (ok && options_.caFile) ok = setOption(handle_, CURLOPT_CAINFO, options_.caFile->c_str());
    // Left unset, libcurl reads the proxy environment variables itself.
    if (ok && options_.proxy) ok = setOption(handle_, CURLOPT_PROXY, options_.proxy->c_str());
    return ok;
}

VLMSDKHTTPTransfer* VLMSDKHTTPTransfer::from(CURL* handle) {
    void* transfer = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
    return static_cast<VLMSDKHTTPTransfer*>(transfer);
}

void VLMSDKHTTPTransfer::take(VLMSDKHTTPPendingRequest&& pending) {
    requestID_ = pending.id;
    attempt_ = pending.attempt;
    request_ = std::move(pending.request);
    completion_ = std::move(pending.completion);
    keyed_ = options_.retry.idempotencyKeys && methodOf(request_->method()) != Method::GET && requestID_ != 0;
    tooLarge_ = false;
    outOfMemory_ = false;
    refusal_ = nullptr;
    interimReplies_ = 0;
    trailerFields_ = 0;
    interimHead_ = false;
    inTrailer_ = false;
    errorBuffer_[0] = '\0';
    started_ = std::chrono::steady_clock::now();
}

std::optional<std::string> VLMSDKHTTPTransfer::idempotencyKey() const {
    // The same key on every attempt of one request: the process's random prefix and the request's number.
    if (!keyed_) return std::nullopt;
    return idempotencyPrefix() + std::to_string(requestID_);
}

VLMErrorPtr VLMSDKHTTPTransfer::load(VLMSDKHTTPPendingRequest&& pending) {
    take(std::move(pending));
    const VLMSDKRequest& request = *request_;
    const Method method = methodOf(request.method());
    const bool sendsBody = method != Method::GET && (method != Method::DELETE || request.body());

    // The header lines, one per '\n' (a header never holds one: the request builder refuses CR and LF).
    bool hasContentType = false;
    bool hasExpect = false;
    bool ok = true;
    try {
        scratch_.clear();
        for (const auto& [name, value] : request.headers()) {
            hasContentType = hasContentType || equalsIgnoringASCIICase(name, "Content-Type");
            hasExpect = hasExpect || equalsIgnoringASCIICase(name, "Expect");
            scratch_ += name;
            // "Name;" is how libcurl is told to send a header with an empty value.
            if (value.empty()) {
                scratch_ += ';';
            } else {
                scratch_ += ": ";
                scratch_ += value;
            }
            scratch_ += '\n';
        }
        // Empty "Name:" lines remove headers libcurl would add on its own: the 100-continue round trip for
        // larger bodies, and a form content type on bodies sent without one.
        if (const auto key = idempotencyKey()) scratch_.append("Idempotency-Key: ").append(*key).append("\n");
        if (!hasExpect && sendsBody) scratch_ += "Expect:\n";
        if (!hasContentType && sendsBody) scratch_ += "Content-Type:\n";
        // Most requests of a manager carry the same headers: the list of the previous one is kept.
        if (!requestHeaders_ || scratch_ != headerLines_) {
            curl_slist_free_all(requestHeaders_);
            requestHeaders_ = nullptr;
            headerLines_.clear();
            for (std::size_t start = 0; start < scratch_.size();) {
                const std::size_t end = scratch_.find('\n', start);
                scratch_[end] = '\0';
                curl_slist* appended = curl_slist_append(requestHeaders_, scratch_.c_str() + start);
                scratch_[end] = '\n';
                if (!appended) throw std::bad_alloc();
                requestHeaders_ = appended;
                start = end + 1;
            }
            headerLines_ = scratch_;
        }
    } catch (const std::exception&) {
        ok = false;
    }

    ok = ok && setOption(handle_, CURLOPT_URL, request.url().c_str()) &&
         setOption(handle_, CURLOPT_HTTPHEADER, requestHeaders_) &&
         setOption(handle_, CURLOPT_PIPEWAIT, isHTTPS(request.url()) ? 1L : 0L);
    if (ok && sendsBody) {
        // The body goes through the read callback, not as POSTFIELDS: libcurl sends a request again on its
        // own when a reused connection dies before any answer, and it can only do that by rewinding the
        // body. Without a seek callback it cannot, and ends the transfer with CURLE_SEND_FAIL_REWIND: a
        // POST or PATCH the service may have acted on goes out once, on a kept connection. A keyed request
        // may be repeated, so it can be rewound. A body-carrying method without a body still says so:
        // "Content-Length: 0".
        uploadOffset_ = 0;
        const auto size = static_cast<curl_off_t>(request.body() ? request.body()->size() : 0);
        ok = setOption(handle_, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr)) &&
             setOption(handle_, CURLOPT_POST, 1L) && setOption(handle_, CURLOPT_POSTFIELDSIZE_LARGE, size) &&
             setOption(handle_, CURLOPT_SEEKFUNCTION,
                       keyed_ ? &VLMSDKHTTPTransfer::onSeek : static_cast<curl_seek_callback>(nullptr)) &&
             setOption(handle_, CURLOPT_CUSTOMREQUEST, method == Method::POST ? nullptr : request.method().c_str());
    } else if (ok) {
        // Forget the previous request's body before switching back to a bodiless request.
        ok = setOption(handle_, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr)) &&
             setOption(handle_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1)) &&
             setOption(handle_, CURLOPT_HTTPGET, 1L) &&
             setOption(handle_, CURLOPT_CUSTOMREQUEST, method == Method::GET ? nullptr : request.method().c_str());
    }
    if (!ok) {
        return networkError(VLMErrorCode::InvalidRequest, "libcurl refused the request " + describe(request) + ".",
                            __func__);
    }
    return nullptr;
}

std::size_t VLMSDKHTTPTransfer::onHeader(char* data, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<VLMSDKHTTPTransfer*>(transfer);
    const std::size_t length = size * count;
    std::string_view line(data, length);
    // What the core's own reply parser refuses, refused here too and at once: a line libcurl would read one
    // way and another reader another, a protocol switch nobody asked for (libcurl would wait it out), and
    // interim replies without end.
    if (!line.ends_with("\r\n")) {
        self.refusal_ = "The reply's header has a line ending in a bare LF, not CR LF.";
        return 0;
    }
    // A status line starts a head (a trailer field's name could never hold the '/').
    if (self.inTrailer_ && !line.starts_with("HTTP/")) {
        if (line != "\r\n" && ++self.trailerFields_ > kTrailerFields) {
            self.refusal_ = "The reply's trailer section has more than 64 fields.";
            return 0;
        }
        return length;  // read past, not kept
    }
    if (line == "\r\n") {
        // The end of a head: after the final one, only trailer fields come.
        self.inTrailer_ = !self.interimHead_;
        return length;
    }
    try {
        if (line.starts_with("HTTP/")) {
            const auto status = line.substr(std::min<std::size_t>(line.find(' '), line.size()));
            self.interimHead_ = status.starts_with(" 1");
            self.inTrailer_ = false;
            if (status.starts_with(" 101")) {
                self.refusal_ = "The server switched protocols, which was not asked for.";
                return 0;
            }
            if (status.starts_with(" 1") && ++self.interimReplies_ > kInterimReplies) {
                self.refusal_ = "The server sent more than 5 interim (1xx) replies.";
                return 0;
            }
            // A new header block (after 100 Continue or a proxy's CONNECT answer): only the last one counts.
            self.replyHeaders_.clear();
            return length;
        }
        if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            const auto continuation = trimmed(line);
            if (!self.replyHeaders_.empty() && !continuation.empty()) {
                self.replyHeaders_.back().second.append(" ").append(continuation);
            }
            return length;
        }
        const auto colon = line.find(':');
        if (colon == std::string_view::npos) return length;
        const auto name = line.substr(0, colon);
        const auto value = trimmed(line.substr(colon + 1));
        if (equalsIgnoringASCIICase(name, "Content-Length")) {
            std::uintmax_t announced = 0;
            const auto [end, status] = std::from_chars(value.data(), value.data() + value.size(), announced);
            if (status == std::errc() && end == value.data() + value.size()) {
                if (announced > self.options_.maximumReplySize) {
                    self.tooLarge_ = true;
                    return 0;
                }
                self.body_.reserve(static_cast<std::size_t>(announced) + VLMSDKJSONReader::kSpareCapacity);
            }
        }
        if (self.replyHeaders_.empty()) self.replyHeaders_.reserve(16);
        self.replyHeaders_.emplace_back(name, value);
    } catch (const std::exception&) {
        self.outOfMemory_ = true;
        return 0;
    }
    return length;
}

std::size_t VLMSDKHTTPTransfer::onRead(char* buffer, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<VLMSDKHTTPTransfer*>(transfer);
    const std::optional<std::string>& body = self.request_->body();
    if (!body || self.uploadOffset_ >= body->size()) return 0;
    const std::size_t length = std::min(size * count, body->size() - self.uploadOffset_);
    std::copy_n(body->data() + self.uploadOffset_, length, buffer);
    self.uploadOffset_ += length;
    return length;
}

int VLMSDKHTTPTransfer::onSeek(void* transfer, curl_off_t offset, int origin) {
    auto& self = *static_cast<VLMSDKHTTPTransfer*>(transfer);
    // libcurl rewinds to the start to send a keyed request again; nothing else is asked of it.
    if (origin != SEEK_SET || offset != 0) return CURL_SEEKFUNC_FAIL;
    self.uploadOffset_ = 0;
    return CURL_SEEKFUNC_OK;
}

std::size_t VLMSDKHTTPTransfer::onBody(char* data, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<VLMSDKHTTPTransfer*>(transfer);
    const std::size_t length = size * count;
    if (length > self.options_.maximumReplySize - self.body_.size()) {
        // Stop the transfer rather than hold a reply that will be refused anyway.
        self.tooLarge_ = true;
        return 0;
    }
    try {
        self.body_.append(data, length);
    } catch (const std::exception&) {
        self.outOfMemory_ = true;
        return 0;
    }
    return length;
}

VLMSDKHTTPReply VLMSDKHTTPTransfer::finish(CURLcode result, VLMSDKJSONReader& reader) {
    long statusCode = 0;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &statusCode);
    return finishWith(result, statusCode, reader);
}

VLMSDKHTTPReply VLMSDKHTTPTransfer::finishFromWire(CURLcode result, VLMSDKHTTP1ReplyParser* reply,
                                                   std::string_view failure, VLMSDKJSONReader& reader) {
    long statusCode = 0;
    if (reply) {
        statusCode = reply->statusCode();
        replyHeaders_ = reply->takeHeaders();
        body_ = std::move(reply->body());
        tooLarge_ = reply->failure() == VLMSDKHTTP1ReplyParser::Failure::BodyTooLarge;
    }
    // The connection's own words stand where libcurl's would.
    const std::size_t length = std::min(failure.size(), sizeof errorBuffer_ - 1);
    std::copy_n(failure.data(), length, errorBuffer_);
    errorBuffer_[length] = '\0';
    return finishWith(result, statusCode, reader);
}

VLMSDKHTTPReply VLMSDKHTTPTransfer::finishWith(CURLcode result, long statusCode, VLMSDKJSONReader& reader) {
    if (refusal_) {
        // Said as the core's own connection says it: a reply refused as a whole, with no status.
        result = CURLE_WEIRD_SERVER_REPLY;
        statusCode = 0;
        const std::size_t length = std::min(std::strlen(refusal_), sizeof errorBuffer_ - 1);
        std::copy_n(refusal_, length, errorBuffer_);
        errorBuffer_[length] = '\0';
    }
    try {
        return replyFor(result, statusCode, reader);
    } catch (const std::exception& exception) {
        try {
            return {nullptr, nullptr,
                    networkError(VLMErrorCode::Unknown,
                                 "The reply to " + describe(*request_) + " could not be read: " + exception.what(),
                                 __func__)};
        } catch (const std::exception&) {
            return {};
        }
    }
}

VLMSDKHTTPReply VLMSDKHTTPTransfer::replyFor(CURLcode result, long statusCode, VLMSDKJSONReader& reader) {
    VLMSDKHTTPReply reply;
    if (statusCode > 0) {
        // The request's own URL, redacted: redirects are not followed, so it is the one that answered.
        reply.response = std::make_shared<const VLMSDKURLResponse>(request_->redactedURL(), statusCode,
                                                                   std::move(replyHeaders_), attempt_);
    }
    if (result != CURLE_OK || tooLarge_ || outOfMemory_) {
        reply.error = transportError(result, statusCode);
        return reply;
    }
    if (trimmed(body_).empty()) return reply;

    auto read = reader.read(body_);
    if (read.failure != VLMSDKJSONReader::Failure::None) {
        const std::string what = "The reply to " + describe(*request_) + " (HTTP " + std::to_string(statusCode) + ")";
        auto error = VLMError::errorWithCode(
            VLMErrorCode::InvalidResponse, kVLMSDKResponseErrorDomain,
            read.failure == VLMSDKJSONReader::Failure::TooDeep
                ? what + " is nested deeper than " + std::to_string(kVLMSDKMaximumJSONDepth) + " levels."
                : what + " is not JSON: " + excerptOf(body_),
            __func__, __FILE__);
        auto details = error->details();
        details.httpStatusCode = statusCode;
        reply.error = std::make_shared<const VLMError>(std::move(details));
        return reply;
    }
    reply.body = std::move(read.reply);
    return reply;
}

VLMErrorPtr VLMSDKHTTPTransfer::transportError(CURLcode result, long statusCode) const {
    const std::string what = describe(*request_);
    if (tooLarge_ || result == CURLE_FILESIZE_EXCEEDED) {
        return networkError(VLMErrorCode::ReplyTooLarge,
                            "The reply to " + what + " (HTTP " + std::to_string(statusCode) +
                                ") is larger than the limit of " + std::to_string(options_.maximumReplySize) +
                                " bytes.",
                            __func__);
    }
    if (outOfMemory_) {
        return networkError(VLMErrorCode::Transport, "Out of memory while receiving the reply to " + what + ".",
                            __func__);
    }
    std::string message = what + " failed: " + curl_easy_strerror(result);
    if (errorBuffer_[0] != '\0') message.append(" (").append(errorBuffer_).append(")");
    if (attempt_ > 1) message.append(" after ").append(std::to_string(attempt_)).append(" attempts");
    switch (result) {
    case CURLE_SEND_FAIL_REWIND:
        // A kept connection died after the request went out and before any answer; libcurl could not send
        // it again, and must not have.
        return networkError(VLMErrorCode::Transport,
                            what + " got no answer: the connection closed after the request went out, so the service "
                                   "may have acted on it. It was not sent again.",
                            __func__);
    case CURLE_OPERATION_TIMEDOUT: return networkError(VLMErrorCode::Timeout, std::move(message), __func__);
    case CURLE_URL_MALFORMAT: return networkError(VLMErrorCode::InvalidRequest, std::move(message), __func__);
    default: return networkError(VLMErrorCode::Transport, std::move(message), __func__);
    }
}

VLMSDKHTTPExchange VLMSDKHTTPTransfer::exchange(const VLMSDKHTTPReply& reply) const {
    VLMSDKHTTPExchange exchange;
    exchange.method = request_->method();
    exchange.url = request_->redactedURL();
    exchange.attempt = attempt_;
    exchange.requestHeaders = request_->headers();
    for (auto& [name, value] : exchange.requestHeaders) {
        // The scheme stays readable ("Bearer ***"); the credentials never leave.
        if (equalsIgnoringASCIICase(name, "Authorization")) value = value.substr(0, value.find(' ')) + " ***";
    }
    exchange.requestBody = request_->body();
    if (reply.response) {
        exchange.statusCode = reply.response->statusCode();
        exchange.responseHeaders = reply.response->headers();
    }
    exchange.responseBody = body_;
    exchange.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started_);
    if (reply.error) exchange.failure = reply.error->developerMessage();
    return exchange;
}

VLMErrorPtr VLMSDKHTTPTransfer::cancellationError() const {
    return networkError(VLMErrorCode::Cancelled,
                        describe(*request_) + " was cancelled: the request manager shut down.", __func__);
}

bool VLMSDKHTTPTransfer::handleSentAnything() const {
    long requestBytes = 0;
    curl_off_t bodyBytes = 0;
    curl_easy_getinfo(handle_, CURLINFO_REQUEST_SIZE, &requestBytes);
    curl_easy_getinfo(handle_, CURLINFO_SIZE_UPLOAD_T, &bodyBytes);
    return requestBytes > 0 || bodyBytes > 0;
}

VLMErrorPtr VLMSDKHTTPTransfer::hostCancellationError(bool sentAnything) const {
    // Once bytes of the request have left, a POST or PATCH may have been acted on.
    const bool changesState = methodOf(request_->method()) != Method::GET;
    return VLMSDKCancellation::cancelledError(describe(*request_), changesState && sentAnything);
}

VLMSDKDataTaskCompletion VLMSDKHTTPTransfer::release() {
    VLMSDKDataTaskCompletion completion = std::move(completion_);
    completion_ = nullptr;
    request_.reset();
    requestID_ = 0;
    attempt_ = 1;
    keyed_ = false;
    // The header list stays set and kept for the next request that sends the same lines.
    replyHeaders_.clear();
    if (body_.capacity() > kKeptBodyCapacity) {
        std::string().swap(body_);
    } else {
        body_.clear();
    }
    return completion;
}

std::size_t VLMSDKHTTPTransfer::connectionsOpened() const {
    long connections = 0;
    curl_easy_getinfo(handle_, CURLINFO_NUM_CONNECTS, &connections);
    return connections > 0 ? static_cast<std::size_t>(connections) : 0;
}

}  // namespace vlmsdk::detail
