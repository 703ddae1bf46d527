#pragma once

#include "VLMSDKCurlTransfer.h"
#include "VLMSDKTransportAdapter.h"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace vlmsdk::detail {

/// The libcurl adapter: one multi handle driven through libcurl's socket interface, its easy handles
/// (VLMSDKCurlTransfer) reused attempt after attempt, and a share handle through which the manager's
/// connections resume each other's TLS sessions. It carries every request it is handed: names to look up,
/// TLS, proxies, HTTP/2 multiplexing where the server offers it. The only part of the core that knows
/// libcurl's codes, which it turns into the core's attempt ends.
class VLMSDKCurlAdapter final : public VLMSDKTransportAdapter {
public:
    /// An adapter ready for attempts, or nullptr (and `error`) when libcurl cannot make its handles.
    /// `options` must outlive it.
    static std::unique_ptr<VLMSDKCurlAdapter> make(const VLMSDKHTTPRequestManagerOptions& options,
                                                   std::size_t liveLimit, Listener& listener, VLMErrorPtr* error);
    ~VLMSDKCurlAdapter() override;

    bool start(VLMSDKHTTPAttempt& attempt) override;
    void prepareWait(std::vector<pollfd>& descriptors,
                     std::optional<std::chrono::steady_clock::time_point>& wakeAt) override;
    void advance(std::span<const pollfd> descriptors) override;
    bool stop(VLMSDKHTTPAttempt& attempt) override;

private:
    VLMSDKCurlAdapter(const VLMSDKHTTPRequestManagerOptions& options, Listener& listener);

    static int onSocket(CURL* handle, curl_socket_t socket, int what, void* adapter, void* socketData);
    static int onTimer(CURLM* multi, long milliseconds, void* adapter);

    void collectFinished();
    VLMSDKCurlTransfer* idleTransfer();

    const VLMSDKHTTPRequestManagerOptions& options_;
    Listener& listener_;
    CURLM* multi_ = nullptr;
    CURLSH* share_ = nullptr;
    std::vector<std::unique_ptr<VLMSDKCurlTransfer>> transfers_;
    std::vector<VLMSDKCurlTransfer*> idle_;
    std::vector<pollfd> sockets_;  // what libcurl asked to wait for, per socket (a few: a flat list)
    std::size_t waitedOn_ = 0;     // how many of them the last prepareWait appended
    std::optional<std::chrono::steady_clock::time_point> timerDeadline_;
};

}  // namespace vlmsdk::detail
