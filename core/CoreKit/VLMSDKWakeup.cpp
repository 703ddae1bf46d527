#include "VLMSDKWakeup.h"

#include <cstdint>

#include <fcntl.h>
#include <unistd.h>
#if VLMSDK_USE_EVENTFD
#include <sys/eventfd.h>
#endif

namespace vlmsdk::detail {

#if !VLMSDK_USE_EVENTFD
namespace {

bool makeNonBlockingAndPrivate(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags >= 0 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0 &&
           ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

}  // namespace
#endif

VLMSDKWakeup::VLMSDKWakeup() {
#if VLMSDK_USE_EVENTFD
    read_ = write_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
#else
    int ends[2];
    if (::pipe(ends) != 0) return;
    if (!makeNonBlockingAndPrivate(ends[0]) || !makeNonBlockingAndPrivate(ends[1])) {
        ::close(ends[0]);
        ::close(ends[1]);
        return;
    }
    read_ = ends[0];
    write_ = ends[1];
#endif
}

VLMSDKWakeup::~VLMSDKWakeup() {
    if (write_ >= 0 && write_ != read_) ::close(write_);
    if (read_ >= 0) ::close(read_);
}

void VLMSDKWakeup::signal() const {
    if (write_ < 0) return;
#if VLMSDK_USE_EVENTFD
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(write_, &one, sizeof one);
#else
    // A full pipe is readable already: the wait ends either way.
    const char one = 1;
    [[maybe_unused]] const auto written = ::write(write_, &one, 1);
#endif
}

void VLMSDKWakeup::drain() const {
    if (read_ < 0) return;
#if VLMSDK_USE_EVENTFD
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(read_, &count, sizeof count);
#else
    char bytes[64];
    while (::read(read_, bytes, sizeof bytes) == static_cast<long>(sizeof bytes)) {
    }
#endif
}

}  // namespace vlmsdk::detail
