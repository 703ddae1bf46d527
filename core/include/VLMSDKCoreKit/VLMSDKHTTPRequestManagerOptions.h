#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKHTTPExchange.h>
#include <VLMSDKCoreKit/VLMSDKRetryPolicy.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// Settings of a `VLMSDKHTTPRequestManager`, fixed when the manager is made. Every field has a usable default.
struct VLMSDKHTTPRequestManagerOptions {
    /// Which thread drives the transfers and calls the reply handlers.
    enum class Mode {
        /// Pumped while the host pumps VLMSDKMainQueue itself (no executor installed), threaded once the host
        /// has installed an executor; decided for each request as it is handed over, and kept by it.
        Automatic,
        /// The main thread drives the transfers while it pumps VLMSDKMainQueue (drain, runUntil, runFor) and
        /// calls the reply handlers there: no thread of the manager's own and no hand-off between threads.
        /// Nothing moves while the host does not pump.
        Pumped,
        /// A network thread of the manager's own drives the transfers and calls the reply handlers; the
        /// kit's operations validate and map there and post only the finished outcome to the main queue.
        Threaded,
    };
    /// Which thread drives the transfers. Default: Automatic.
    Mode mode = Mode::Automatic;
    /// Who speaks HTTP on the wire.
    enum class Transport {
        /// libcurl for every request (the default): names looked up, TLS, proxies, HTTP/2 where the server
        /// offers it. What a production service is reached by, so it is what the tests, the tool and the
        /// demo run too.
        LibCurl,
        /// The core's own HTTP/1.1 connections for plain http to a literal IP address when no proxy applies
        /// (`proxy` empty, or absent with none of http_proxy, all_proxy, ALL_PROXY set), libcurl for every
        /// other request. An opt-in for hosts that talk plain http to an address: about half libcurl's CPU
        /// per request there (bench/README.md), with the same errors, limits and retries.
        HTTP1,
    };
    /// Who speaks HTTP on the wire. Default: LibCurl.
    Transport transport = Transport::LibCurl;
    /// Time allowed to set up a connection (zero: no limit of its own). Default 10 s.
    std::chrono::milliseconds connectTimeout{std::chrono::seconds(10)};
    /// Time allowed for a whole request once it is sent, connecting included (zero: no limit). Time spent
    /// waiting in the manager's queue does not count. Default 60 s.
    std::chrono::milliseconds requestTimeout{std::chrono::seconds(60)};
    /// How long a kept connection may sit idle and still carry the next request; an older one is closed and
    /// a new one opened (zero: no limit). libcurl counts whole seconds: there the limit is rounded up to one.
    /// Default 118 s, as libcurl's.
    std::chrono::milliseconds maximumIdleTime{std::chrono::seconds(118)};
    /// Largest reply body accepted, in bytes; a larger reply fails with `VLMErrorCode::ReplyTooLarge` and is
    /// dropped while it arrives. Default 10 MiB.
    std::size_t maximumReplySize = 10 * 1024 * 1024;
    /// Whether the server's certificate chain and its host name are checked. Default: both on.
    ///@{
    bool verifyPeer = true;
    bool verifyHost = true;
    ///@}
    /// A file of CA certificates (PEM) to trust instead of the system's. Default: the system's.
    std::optional<std::string> caFile;
    /// Proxy URL such as "http://proxy:3128". Absent (the default): the usual proxy environment variables
    /// (http_proxy, https_proxy, all_proxy, no_proxy) apply. An empty string: no proxy at all.
    std::optional<std::string> proxy;
    /// Requests on the wire at once, which also bounds the connections open at once; further requests wait,
    /// in order, in the manager's queue. Default 64, at least 1.
    std::size_t maximumLiveTransfers = 64;
    /// Told of every attempt once it ends, before its reply handler runs, on the thread that drives the
    /// transfer (see the manager's modes). It must return quickly and must not throw. Default: none.
    VLMSDKHTTPExchangeObserver exchangeObserver;
    /// When a failed request is sent again (see VLMSDKRetryPolicy). Default: up to 3 attempts where safe.
    VLMSDKRetryPolicy retry;
};

VLMSDK_API_END
