#include "VLMSDKCurlAdapter.h"

#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <mutex>

namespace vlmsdk::detail {

namespace {

void initializeLibcurlOnce() {
    // Process-wide and never undone: cleaning up while another manager (or the host) still uses libcurl
    // would break it.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

short pollEvents(int what) {
    short events = 0;
    if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) events |= POLLIN;
    if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) events |= POLLOUT;
    return events;
}

int socketActions(short revents) {
    int actions = 0;
    if (revents & (POLLIN | POLLHUP)) actions |= CURL_CSELECT_IN;
    if (revents & POLLOUT) actions |= CURL_CSELECT_OUT;
    if (revents & (POLLERR | POLLNVAL)) actions |= CURL_CSELECT_ERR;
    return actions;
}

VLMErrorPtr adapterError(std::string message, const char* function) {
    return VLMError::errorWithCode(VLMErrorCode::Transport, kVLMSDKNetworkErrorDomain, std::move(message), function,
                                   __FILE__);
}

}  // namespace

std::unique_ptr<VLMSDKCurlAdapter> VLMSDKCurlAdapter::make(const VLMSDKHTTPRequestManagerOptions& options,
                                                           std::size_t liveLimit, Listener& listener,
                                                           VLMErrorPtr* error) {
    initializeLibcurlOnce();
    std::unique_ptr<VLMSDKCurlAdapter> adapter(new VLMSDKCurlAdapter(options, listener));
    adapter->multi_ = curl_multi_init();
    if (!adapter->multi_) {
        *error = adapterError("libcurl could not make a multi handle.", __func__);
        return nullptr;
    }
    // The multi handle shares connections and names looked up; TLS sessions are shared here, so that every
    // new connection of the manager after the first resumes one instead of a full handshake. One thread
    // drives the adapter at a time: no lock functions.
    adapter->share_ = curl_share_init();
    if (!adapter->share_ ||
        curl_share_setopt(adapter->share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION) != CURLSHE_OK) {
        *error = adapterError("libcurl could not share TLS sessions.", __func__);
        return nullptr;
    }
    CURLM* multi = adapter->multi_;
    curl_multi_setopt(multi, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
    // libcurl's default cache size follows the number of live transfers and shrinks as they finish,
    // closing idle keep-alive connections that the next burst would reuse.
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, static_cast<long>(std::min<std::size_t>(liveLimit, LONG_MAX)));
    curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &VLMSDKCurlAdapter::onSocket);
    curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, static_cast<void*>(adapter.get()));
    curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &VLMSDKCurlAdapter::onTimer);
    curl_multi_setopt(multi, CURLMOPT_TIMERDATA, static_cast<void*>(adapter.get()));
    return adapter;
}

VLMSDKCurlAdapter::VLMSDKCurlAdapter(const VLMSDKHTTPRequestManagerOptions& options, Listener& listener)
    : options_(options), listener_(listener) {}

VLMSDKCurlAdapter::~VLMSDKCurlAdapter() {
    for (const auto& transfer : transfers_) {
        if (transfer->attempt()) curl_multi_remove_handle(multi_, transfer->handle());
    }
    transfers_.clear();
    if (multi_) curl_multi_cleanup(multi_);
    if (share_) curl_share_cleanup(share_);  // after every handle that used it
}

VLMSDKCurlTransfer* VLMSDKCurlAdapter::idleTransfer() {
    if (!idle_.empty()) {
        VLMSDKCurlTransfer* transfer = idle_.back();
        idle_.pop_back();
        return transfer;
    }
    auto transfer = VLMSDKCurlTransfer::make(options_, share_);
    if (!transfer) return nullptr;
    // Room for the transfer's return to the idle list is made now, so that its return cannot fail.
    idle_.reserve(transfers_.size() + 1);
    transfers_.push_back(std::move(transfer));
    return transfers_.back().get();
}

bool VLMSDKCurlAdapter::start(VLMSDKHTTPAttempt& attempt) {
    VLMSDKCurlTransfer* transfer = nullptr;
    try {
        transfer = idleTransfer();
    } catch (const std::exception&) {
        (void)listener_.attemptEnded(attempt, VLMSDKHTTPAttemptEnd::OutOfMemory, {});
        return true;
    }
    if (!transfer) {
        (void)listener_.attemptEnded(attempt, VLMSDKHTTPAttemptEnd::Failed,
                               "libcurl could not make a transfer handle, or refused the manager's options (CA file, "
                               "proxy or limits)");
        return true;
    }
    const char* refused = nullptr;
    if (!transfer->load(attempt)) {
        refused = "libcurl refused the request";
    } else if (curl_multi_add_handle(multi_, transfer->handle()) != CURLM_OK) {
        transfer->unload();
        refused = "libcurl could not start a transfer";
    }
    if (refused) {
        idle_.push_back(transfer);
        (void)listener_.attemptEnded(attempt, VLMSDKHTTPAttemptEnd::InvalidRequest, refused);
    }
    return true;
}

void VLMSDKCurlAdapter::prepareWait(std::vector<pollfd>& descriptors,
                                    std::optional<std::chrono::steady_clock::time_point>& wakeAt) {
    descriptors.insert(descriptors.end(), sockets_.begin(), sockets_.end());
    waitedOn_ = sockets_.size();
    if (timerDeadline_ && (!wakeAt || *timerDeadline_ < *wakeAt)) wakeAt = timerDeadline_;
}

void VLMSDKCurlAdapter::advance(std::span<const pollfd> descriptors) {
    int running = 0;
    for (const pollfd& descriptor : descriptors.first(std::min(waitedOn_, descriptors.size()))) {
        if (descriptor.revents == 0) continue;
        curl_multi_socket_action(multi_, descriptor.fd, socketActions(descriptor.revents), &running);
    }
    waitedOn_ = 0;
    if (timerDeadline_ && std::chrono::steady_clock::now() >= *timerDeadline_) {
        timerDeadline_.reset();
        curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
    }
    collectFinished();
}

void VLMSDKCurlAdapter::collectFinished() {
    int left = 0;
    for (;;) {
        if (listener_.stopRequested()) return;
        CURLMsg* message = curl_multi_info_read(multi_, &left);
        if (!message) return;
        if (message->msg != CURLMSG_DONE) continue;
        CURL* handle = message->easy_handle;
        const CURLcode result = message->data.result;
        VLMSDKCurlTransfer* transfer = VLMSDKCurlTransfer::from(handle);
        listener_.connectionsOpened(transfer->connectionsOpened());
        // The connection's socket, while libcurl still knows whose it was: closed below if its reply
        // answered another request. libcurl's check before reuse then finds it dead.
        curl_socket_t socket = CURL_SOCKET_BAD;
        if (result == CURLE_OK && transfer->attempt()->checksReply()) {
            curl_easy_getinfo(handle, CURLINFO_ACTIVESOCKET, &socket);
        }
        curl_multi_remove_handle(multi_, handle);
        std::string detail;
        VLMSDKHTTPAttemptEnd end = VLMSDKHTTPAttemptEnd::OutOfMemory;
        try {
            end = transfer->finish(result, &detail);
        } catch (const std::exception&) {
            // No room for libcurl's words: the end stands without them.
        }
        VLMSDKHTTPAttempt* attempt = transfer->attempt();
        transfer->unload();
        idle_.push_back(transfer);
        if (!listener_.attemptEnded(*attempt, end, detail) && socket != CURL_SOCKET_BAD) {
            ::shutdown(socket, SHUT_RDWR);
        }
    }
}

bool VLMSDKCurlAdapter::stop(VLMSDKHTTPAttempt& attempt) {
    for (const auto& transfer : transfers_) {
        if (transfer->attempt() != &attempt) continue;
        const bool sentAnything = transfer->sentAnything();
        curl_multi_remove_handle(multi_, transfer->handle());
        transfer->unload();
        idle_.push_back(transfer.get());
        return sentAnything;
    }
    return false;
}

int VLMSDKCurlAdapter::onSocket(CURL*, curl_socket_t socket, int what, void* adapter, void*) {
    auto& self = *static_cast<VLMSDKCurlAdapter*>(adapter);
    try {
        auto& sockets = self.sockets_;
        const auto found = std::find_if(sockets.begin(), sockets.end(), [&](const pollfd& p) { return p.fd == socket; });
        if (what == CURL_POLL_REMOVE) {
            if (found != sockets.end()) {
                *found = sockets.back();
                sockets.pop_back();
            }
        } else if (found != sockets.end()) {
            found->events = pollEvents(what);
        } else {
            sockets.push_back({socket, pollEvents(what), 0});
        }
    } catch (...) {
        return -1;  // libcurl fails the transfers on this socket
    }
    return 0;
}

int VLMSDKCurlAdapter::onTimer(CURLM*, long milliseconds, void* adapter) {
    auto& self = *static_cast<VLMSDKCurlAdapter*>(adapter);
    if (milliseconds < 0) {
        self.timerDeadline_.reset();
    } else {
        self.timerDeadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    }
    return 0;
}

}  // namespace vlmsdk::detail
