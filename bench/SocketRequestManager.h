#pragma once

// Client (s)'s request manager: a prototype that answers what the kit costs per fetch without libcurl. It
// speaks HTTP/1.1 over non-blocking sockets kept alive, driven by the main thread as it pumps
// VLMSDKMainQueue, and reads replies with the core's HTTP/1.1 reply parser and JSON reader; the kit's frame,
// validation and mapping above it are the production ones. Plain http to a numeric IPv4 address: enough for
// the loopback server, not yet a transport (no timeouts, retries, cancellation or size cap).
// Main thread only.

#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <memory>

namespace vlmsdk::bench {

/// A manager attached to the main queue; `close` detaches it and closes its connections.
std::shared_ptr<VLMSDKRequestManager> makeSocketRequestManager();
void closeSocketRequestManager(const std::shared_ptr<VLMSDKRequestManager>& manager);

}  // namespace vlmsdk::bench
