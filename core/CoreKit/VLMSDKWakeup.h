#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

namespace vlmsdk::detail {

/// A descriptor a poll waits on and any thread can make readable: what ends the main queue's wait and the
/// network thread's. An eventfd where the system has one (Linux), else a non-blocking pipe (any POSIX
/// system); which one is fixed when the project is configured, and VLMSDK_PORTABLE_POSIX forces the pipe.
///
/// `signal` may be called from any thread at any time; `drain` by the thread that waits.
class VLMSDK_INTERNAL VLMSDKWakeup {
public:
    VLMSDKWakeup();
    ~VLMSDKWakeup();
    VLMSDKWakeup(const VLMSDKWakeup&) = delete;
    VLMSDKWakeup& operator=(const VLMSDKWakeup&) = delete;

    /// False when no descriptor could be made (the system is out of them): `descriptor` is then -1, which
    /// a poll passes over, and `signal` does nothing.
    bool valid() const { return read_ >= 0; }
    /// The descriptor to wait on for POLLIN.
    int descriptor() const { return read_; }
    /// Makes the descriptor readable; signals before the next `drain` count as one.
    void signal() const;
    /// Takes back what the signals left, so that the next wait blocks again.
    void drain() const;

private:
    int read_ = -1;
    int write_ = -1;  // the same descriptor as read_ for an eventfd
};

}  // namespace vlmsdk::detail
