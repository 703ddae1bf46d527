#pragma once

#include <sys/types.h>

#include <cstddef>

namespace vlmsdk::detail {

/// The system calls the core makes that differ between POSIX systems, written once: Linux's forms where the
/// project was configured with them (not with VLMSDK_PORTABLE_POSIX), portable ones elsewhere. With
/// VLMSDKWakeup, the only place the core and the kit reach for anything Linux-only.

/// A TCP socket of `family`, non-blocking, closed on exec, that never raises SIGPIPE; -1 (errno set) if none.
int openStreamSocket(int family);

/// send(2) on a socket from openStreamSocket, without SIGPIPE when the peer has gone.
ssize_t sendWithoutSignal(int socket, const void* data, std::size_t size);

/// Whether the calling thread is the one that started the process (on Linux, the thread whose id is the
/// process's; elsewhere the thread that ran the program's static initialisation).
bool isProcessMainThread();

}  // namespace vlmsdk::detail
