#pragma once

// Client (s)'s request manager: a prototype that answers what the kit costs per fetch without libcurl. It
// keeps the core's HTTP/1.1 connections (VLMSDKHTTP1Connection: request text, keep-alive, reply parser) for
// each origin, waits on them as a main-queue source while the main thread pumps VLMSDKMainQueue, and reads
// replies with the core's JSON reader; the kit's frame, validation and mapping above it are the production
// ones. Plain http to an IP address: not yet a transport (no time limits, retries, cancellation or size cap).
// Main thread only.

#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <memory>

namespace vlmsdk::bench {

/// A manager attached to the main queue; `close` detaches it and closes its connections.
std::shared_ptr<VLMSDKRequestManager> makeSocketRequestManager();
void closeSocketRequestManager(const std::shared_ptr<VLMSDKRequestManager>& manager);

}  // namespace vlmsdk::bench
