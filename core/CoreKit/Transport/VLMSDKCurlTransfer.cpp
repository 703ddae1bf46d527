#include "VLMSDKCurlTransfer.h"

#include "../JSON/VLMSDKJSONReader.h"
#include "../VLMSDKHeaderLookup.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace vlmsdk::detail {

namespace {

// As the core's own reply parser allows.
constexpr std::size_t kInterimReplies = 5;
constexpr std::size_t kTrailerFields = 64;

bool isHTTPS(const std::string& url) { return startsWithIgnoringASCIICase(url, "https://"); }

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

// libcurl drops a connection whose idle whole seconds exceed the value: n - 1 closes it once it sat idle n
// seconds, the limit rounded up to a second. Zero means no limit here.
long idleSeconds(std::chrono::milliseconds limit) {
    if (limit.count() <= 0) return LONG_MAX;
    return (clampedMilliseconds(limit) + 999) / 1000 - 1;
}

// The typed curl_easy_setopt check cannot see through a template, so each call site passes the exact type.
template <typename Value>
bool setOption(CURL* handle, CURLoption option, Value value) {
    return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

// What libcurl's result means in the core's terms.
VLMSDKHTTPAttemptEnd endOf(CURLcode result) {
    using End = VLMSDKHTTPAttemptEnd;
    switch (result) {
        case CURLE_OK: return End::Answered;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY: return End::NotResolved;
        case CURLE_COULDNT_CONNECT: return End::ConnectFailed;
        case CURLE_SEND_ERROR: return End::SendFailed;
        case CURLE_RECV_ERROR:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM: return End::ReceiveFailed;
        case CURLE_GOT_NOTHING: return End::NoAnswer;
        // A kept connection died after the request went out; the body could not be rewound to send it again.
        case CURLE_SEND_FAIL_REWIND: return End::MayHaveActed;
        case CURLE_WEIRD_SERVER_REPLY: return End::MalformedReply;
        case CURLE_PARTIAL_FILE: return End::CutShort;
        case CURLE_FILESIZE_EXCEEDED: return End::TooLarge;
        case CURLE_OPERATION_TIMEDOUT: return End::TimedOut;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS: return End::TLSFailed;
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL: return End::InvalidRequest;
        case CURLE_OUT_OF_MEMORY: return End::OutOfMemory;
        default: return End::Failed;
    }
}

}  // namespace

std::unique_ptr<VLMSDKCurlTransfer> VLMSDKCurlTransfer::make(const VLMSDKHTTPRequestManagerOptions& options,
                                                             CURLSH* share) {
    CURL* handle = curl_easy_init();
    if (!handle) return nullptr;
    std::unique_ptr<VLMSDKCurlTransfer> transfer(new VLMSDKCurlTransfer(options, handle));
    if (!transfer->setSharedOptions() || (share && !setOption(handle, CURLOPT_SHARE, share))) return nullptr;
    return transfer;
}

VLMSDKCurlTransfer::VLMSDKCurlTransfer(const VLMSDKHTTPRequestManagerOptions& options, CURL* handle)
    : options_(options), handle_(handle) {}

VLMSDKCurlTransfer::~VLMSDKCurlTransfer() {
    curl_easy_cleanup(handle_);
    curl_slist_free_all(requestHeaders_);
}

bool VLMSDKCurlTransfer::setSharedOptions() {
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
              setOption(handle_, CURLOPT_HEADERFUNCTION, &VLMSDKCurlTransfer::onHeader) &&
              setOption(handle_, CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_WRITEFUNCTION, &VLMSDKCurlTransfer::onBody) &&
              setOption(handle_, CURLOPT_WRITEDATA, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_READFUNCTION, &VLMSDKCurlTransfer::onRead) &&
              setOption(handle_, CURLOPT_READDATA, static_cast<void*>(this)) &&
              setOption(handle_, CURLOPT_SEEKDATA, static_cast<void*>(this)) &&
              // A proxy's answer to CONNECT is not the service's head: the callback sees only the latter.
              setOption(handle_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (ok && options_.caFile) ok = setOption(handle_, CURLOPT_CAINFO, options_.caFile->c_str());
    // Left unset, libcurl reads the proxy environment variables itself.
    if (ok && options_.proxy) ok = setOption(handle_, CURLOPT_PROXY, options_.proxy->c_str());
    return ok;
}

VLMSDKCurlTransfer* VLMSDKCurlTransfer::from(CURL* handle) {
    void* transfer = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
    return static_cast<VLMSDKCurlTransfer*>(transfer);
}

bool VLMSDKCurlTransfer::load(VLMSDKHTTPAttempt& attempt) {
    attempt_ = &attempt;
    tooLarge_ = false;
    outOfMemory_ = false;
    refusal_ = nullptr;
    interimReplies_ = 0;
    trailerFields_ = 0;
    interimHead_ = false;
    inTrailer_ = false;
    errorBuffer_[0] = '\0';
    uploadOffset_ = 0;
    const VLMSDKRequest& request = attempt.request();
    const bool sendsBody = attempt.sendsBody();

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
        if (const auto key = attempt.idempotencyKey()) scratch_.append("Idempotency-Key: ").append(*key).append("\n");
        if (const std::string* authorization = attempt.authorization()) {
            scratch_.append("Authorization: ").append(*authorization).append("\n");
        }
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

    // The time left of the attempt's own deadline, which a libcurl re-send keeps.
    long timeout = 0;
    if (const auto deadline = attempt.deadline()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
        timeout = std::max(1L, clampedMilliseconds(left));
    }
    ok = ok && setOption(handle_, CURLOPT_URL, request.url().c_str()) &&
         setOption(handle_, CURLOPT_HTTPHEADER, requestHeaders_) &&
         setOption(handle_, CURLOPT_TIMEOUT_MS, timeout) &&
         setOption(handle_, CURLOPT_PIPEWAIT, isHTTPS(request.url()) ? 1L : 0L);
    const bool post = request.method() == "POST";
    if (ok && sendsBody) {
        // The body goes through the read callback, not as POSTFIELDS: libcurl sends a request again on its
        // own when a reused connection dies before any answer, and it can only do that by rewinding the
        // body. Without a seek callback it cannot, and ends the transfer with CURLE_SEND_FAIL_REWIND: a
        // POST or PATCH the service may have acted on goes out once, on a kept connection. A keyed request
        // may be repeated, so it can be rewound. A body-carrying method without a body still says so:
        // "Content-Length: 0".
        const auto size = static_cast<curl_off_t>(request.body() ? request.body()->size() : 0);
        ok = setOption(handle_, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr)) &&
             setOption(handle_, CURLOPT_POST, 1L) && setOption(handle_, CURLOPT_POSTFIELDSIZE_LARGE, size) &&
             setOption(handle_, CURLOPT_SEEKFUNCTION,
                       attempt.isKeyed() ? &VLMSDKCurlTransfer::onSeek : static_cast<curl_seek_callback>(nullptr)) &&
             setOption(handle_, CURLOPT_CUSTOMREQUEST, post ? nullptr : request.method().c_str());
    } else if (ok) {
        // Forget the previous request's body before switching back to a bodiless request.
        ok = setOption(handle_, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr)) &&
             setOption(handle_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1)) &&
             setOption(handle_, CURLOPT_HTTPGET, 1L) &&
             setOption(handle_, CURLOPT_CUSTOMREQUEST, request.method() == "GET" ? nullptr : request.method().c_str());
    }
    if (!ok) attempt_ = nullptr;
    return ok;
}

std::size_t VLMSDKCurlTransfer::onHeader(char* data, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<VLMSDKCurlTransfer*>(transfer);
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
            self.attempt_->headers.clear();
            return length;
        }
        if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            const auto continuation = trimmed(line);
            if (!self.attempt_->headers.empty() && !continuation.empty()) {
                self.attempt_->headers.back().second.append(" ").append(continuation);
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
                self.attempt_->body.reserve(static_cast<std::size_t>(announced) + VLMSDKJSONReader::kSpareCapacity);
            }
        }
        if (self.attempt_->headers.empty()) self.attempt_->headers.reserve(16);
        self.attempt_->headers.emplace_back(name, value);
    } catch (const std::exception&) {
        self.outOfMemory_ = true;
        return 0;
    }
    return length;
}

std::size_t VLMSDKCurlTransfer::onRead(char* buffer, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<VLMSDKCurlTransfer*>(transfer);
    const std::optional<std::string>& body = self.attempt_->request().body();
    if (!body || self.uploadOffset_ >= body->size()) return 0;
    const std::size_t length = std::min(size * count, body->size() - self.uploadOffset_);
    std::copy_n(body->data() + self.uploadOffset_, length, buffer);
    self.uploadOffset_ += length;
    return length;
}

int VLMSDKCurlTransfer::onSeek(void* transfer, curl_off_t offset, int origin) {
    auto& self = *static_cast<VLMSDKCurlTransfer*>(transfer);
    // libcurl rewinds to the start to send a keyed request again; nothing else is asked of it.
    if (origin != SEEK_SET || offset != 0) return CURL_SEEKFUNC_FAIL;
    self.uploadOffset_ = 0;
    return CURL_SEEKFUNC_OK;
}

std::size_t VLMSDKCurlTransfer::onBody(char* data, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<VLMSDKCurlTransfer*>(transfer);
    const std::size_t length = size * count;
    if (length > self.options_.maximumReplySize - self.attempt_->body.size()) {
        // Stop the transfer rather than hold a reply that will be refused anyway.
        self.tooLarge_ = true;
        return 0;
    }
    try {
        self.attempt_->body.append(data, length);
    } catch (const std::exception&) {
        self.outOfMemory_ = true;
        return 0;
    }
    return length;
}

VLMSDKHTTPAttemptEnd VLMSDKCurlTransfer::finish(CURLcode result, std::string* detail) {
    long statusCode = 0;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &statusCode);
    attempt_->statusCode = statusCode;
    VLMSDKHTTPAttemptEnd end = endOf(result);
    if (refusal_) {
        // Said as the core's own connection says it: a reply refused as a whole, with no status.
        attempt_->statusCode = 0;
        *detail = refusal_;
        return VLMSDKHTTPAttemptEnd::MalformedReply;
    }
    if (tooLarge_) return VLMSDKHTTPAttemptEnd::TooLarge;
    if (outOfMemory_) return VLMSDKHTTPAttemptEnd::OutOfMemory;
    if (end != VLMSDKHTTPAttemptEnd::Answered) *detail = errorBuffer_[0] != '\0' ? errorBuffer_ : curl_easy_strerror(result);
    return end;
}

bool VLMSDKCurlTransfer::sentAnything() const {
    long requestBytes = 0;
    curl_off_t bodyBytes = 0;
    curl_easy_getinfo(handle_, CURLINFO_REQUEST_SIZE, &requestBytes);
    curl_easy_getinfo(handle_, CURLINFO_SIZE_UPLOAD_T, &bodyBytes);
    return requestBytes > 0 || bodyBytes > 0;
}

std::size_t VLMSDKCurlTransfer::connectionsOpened() const {
    long connections = 0;
    curl_easy_getinfo(handle_, CURLINFO_NUM_CONNECTS, &connections);
    return connections > 0 ? static_cast<std::size_t>(connections) : 0;
}

}  // namespace vlmsdk::detail
