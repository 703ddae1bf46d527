#pragma once

#include "VLMSDKHTTPAttempt.h"

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <string>

namespace vlmsdk::detail {

/// One libcurl easy handle of the libcurl adapter, reused attempt after attempt: it loads an attempt's
/// request, fills in its reply through libcurl's callbacks (refusing what the core's own reply parser
/// refuses), and says how it ended in the core's terms. Used by the driving thread only.
class VLMSDKCurlTransfer {
public:
    /// A handle holding the options every request shares, and `share` (the TLS sessions its manager's
    /// connections resume); nullptr when libcurl cannot make one or refuses the options. `options` and
    /// `share` must outlive it.
    static std::unique_ptr<VLMSDKCurlTransfer> make(const VLMSDKHTTPRequestManagerOptions& options, CURLSH* share);
    ~VLMSDKCurlTransfer();
    VLMSDKCurlTransfer(const VLMSDKCurlTransfer&) = delete;
    VLMSDKCurlTransfer& operator=(const VLMSDKCurlTransfer&) = delete;

    /// The transfer whose handle is `handle`.
    static VLMSDKCurlTransfer* from(CURL* handle);

    /// Loads `attempt` into the handle; false when libcurl refuses it.
    bool load(VLMSDKHTTPAttempt& attempt);
    /// How the loaded attempt ended once libcurl reported `result`; `detail` gets libcurl's words for a
    /// failure. Sets the attempt's status.
    VLMSDKHTTPAttemptEnd finish(CURLcode result, std::string* detail);
    /// Whether libcurl sent any byte of the loaded attempt.
    bool sentAnything() const;
    /// Connections libcurl opened for the last attempt.
    std::size_t connectionsOpened() const;

    VLMSDKHTTPAttempt* attempt() const { return attempt_; }
    /// Forgets the attempt, ready for the next one.
    void unload() { attempt_ = nullptr; }
    CURL* handle() const { return handle_; }

private:
    VLMSDKCurlTransfer(const VLMSDKHTTPRequestManagerOptions& options, CURL* handle);
    bool setSharedOptions();

    static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* transfer);
    static int onSeek(void* transfer, curl_off_t offset, int origin);

    const VLMSDKHTTPRequestManagerOptions& options_;
    CURL* handle_;
    VLMSDKHTTPAttempt* attempt_ = nullptr;
    curl_slist* requestHeaders_ = nullptr;
    std::string headerLines_;  // what requestHeaders_ holds, one line per '\n'
    std::string scratch_;
    std::size_t uploadOffset_ = 0;    // of the request body, as the read callback hands it to libcurl
    const char* refusal_ = nullptr;   // why the header callback stopped the reply, in the parser's words
    std::size_t interimReplies_ = 0;
    std::size_t trailerFields_ = 0;
    bool interimHead_ = false;        // the head being read is a 1xx one
    bool inTrailer_ = false;          // the final head has ended: header lines now are trailer fields
    bool tooLarge_ = false;
    bool outOfMemory_ = false;
    char errorBuffer_[CURL_ERROR_SIZE] = {};
};

}  // namespace vlmsdk::detail
