#include "base/Sigpipe.h"

#include <cerrno>
#include <ctime>
#include <sys/uio.h>

#ifndef RWF_NOSIGNAL
#define RWF_NOSIGNAL 0x100 // since Linux 6.18
#endif

namespace
{

sigset_t onlySigpipe()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

} // namespace

ssize_t writeWithoutSigpipe(int fd, std::string_view text)
{
    const iovec only{.iov_base = const_cast<char*>(text.data()), .iov_len = text.size()};
    return pwritev2(fd, &only, 1, -1, RWF_NOSIGNAL);
}

bool holdSigpipe(sigset_t& before)
{
    const sigset_t sigpipe = onlySigpipe();
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    if (sigismember(&before, SIGPIPE) != 1)
        return false;
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

void releaseSigpipe(const sigset_t& before, bool discard)
{
    const int savedErrno = errno;
    if (discard) {
        const sigset_t sigpipe = onlySigpipe();
        const timespec noWait{};
        while (sigtimedwait(&sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
        }
    }
    errno = savedErrno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
