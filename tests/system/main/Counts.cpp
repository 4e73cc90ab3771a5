// Linked into the daemons of the coverage preset alone. They never return from main(): a test kills
// them, and with them what they have counted. There a test asks for the end with this signal: the
// counts are written, and the daemon dies as one that is killed.

#include <csignal>
#include <pthread.h>
#include <thread>
#include <unistd.h>

extern "C" void __gcov_dump();

namespace
{

[[maybe_unused]] const bool awaitsItsEnd = [] {
    sigset_t end;
    sigemptyset(&end);
    sigaddset(&end, SIGPROF);
    pthread_sigmask(SIG_BLOCK, &end, nullptr); // of all threads: they have this one's mask
    std::thread([end] {
        int number = 0;
        sigwait(&end, &number);
        __gcov_dump();
        kill(getpid(), SIGKILL);
    }).detach();
    return true;
}();

} // namespace
