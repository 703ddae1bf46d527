#include "VLMSDKSystemCalls.h"

#include <cerrno>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#if VLMSDK_USE_GETTID
#include <sys/syscall.h>
#else
#include <thread>
#endif

namespace vlmsdk::detail {

int openStreamSocket(int family) {
#if VLMSDK_USE_SOCKET_FLAGS
    return ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
#else
    const int socket = ::socket(family, SOCK_STREAM, IPPROTO_TCP);
    if (socket < 0) return -1;
    const int flags = ::fcntl(socket, F_GETFL);
    if (flags < 0 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) != 0 || ::fcntl(socket, F_SETFD, FD_CLOEXEC) != 0) {
        const int failure = errno;
        ::close(socket);
        errno = failure;
        return -1;
    }
#if !defined(MSG_NOSIGNAL) && defined(SO_NOSIGPIPE)
    // Where send has no flag for it, the socket itself is told.
    const int one = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one);
#endif
    return socket;
#endif
}

ssize_t sendWithoutSignal(int socket, const void* data, std::size_t size) {
#if defined(MSG_NOSIGNAL)
    return ::send(socket, data, size, MSG_NOSIGNAL);
#else
    return ::send(socket, data, size, 0);
#endif
}

#if !VLMSDK_USE_GETTID
namespace {
// Static initialisation runs on the thread that starts the program, before main.
const std::thread::id initialThread = std::this_thread::get_id();
}  // namespace
#endif

bool isProcessMainThread() {
#if VLMSDK_USE_GETTID
    static const pid_t processID = ::getpid();
    return static_cast<pid_t>(::syscall(SYS_gettid)) == processID;
#else
    return std::this_thread::get_id() == initialThread;
#endif
}

}  // namespace vlmsdk::detail
