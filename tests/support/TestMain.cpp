// Entry of every test binary: it moves into a private world before anything else, so that tests use
// the suite's fixed paths and never meet the machine or each other.

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace
{

void enterWorld(int argc, char** argv)
{
    std::vector<char*> command{const_cast<char*>(SYSMGT_WORLD_SCRIPT)};
    command.insert(command.end(), argv, argv + argc + 1);
    execv(command[0], command.data());
    std::perror(SYSMGT_WORLD_SCRIPT);
    std::exit(1);
}

const pid_t testProcess = getpid();
bool testsReturned = false;

/// A communicator that cannot bind ends its process with status 0; here that is a test that failed.
void refuseEarlyEnd()
{
    if (testsReturned || getpid() != testProcess) // a death test's child ends as it likes
        return;
    std::fputs("the process ended before its tests did\n", stderr);
    _exit(1);
}

} // namespace

#ifdef __SANITIZE_THREAD__
// A store's destructor unlocks a mutex that nobody may hold, see DataSets::~DataSets(), and whoever
// releases a holder that it does not hold is told so.
extern "C" const char* __tsan_default_suppressions()
{
    return "mutex:DataSets::~DataSets\nmutex:DataHolder::unlock\n";
}

// Every case is a process of its own, and most have threads that never end: no second's sleep each.
extern "C" const char* __tsan_default_options() { return "atexit_sleep_ms=20"; }
#endif

int main(int argc, char** argv)
{
    if (std::getenv("SYSMGT_WORLD") == nullptr)
        enterWorld(argc, argv);

    unsetenv("TZ"); // as on a device that has not been given a zone
    testing::InitGoogleTest(&argc, argv);
    // The child of a "threadsafe" death test is this program, started anew.
    if (GTEST_FLAG_GET(internal_run_death_test).empty())
        std::atexit(refuseEarlyEnd);
    const int result = RUN_ALL_TESTS();
    testsReturned = true;
    return result;
}
