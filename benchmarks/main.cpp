// Entry of the benchmarks; ./bench builds them and runs them in a private world.

#include "BareSocket.h"
#include "BareStore.h"
#include "Session.h"
#include "questions.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sched.h>
#include <string_view>

namespace
{

struct Question {
    std::string_view name;
    void (*ask)(Session& session);
};

constexpr Question kQuestions[] = {
    {"get", askAboutGet},         {"store", askAboutStore},   {"events", askAboutEvents},
    {"start", askAboutStart},     {"memory", askAboutMemory}, {"datagrams", askAboutDatagrams},
    {"finders", askAboutFinders}, {"log", askAboutLog},
};

/// To the last core that this process may use; its children stay there too.
void pinToOneCore()
{
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == -1)
        giveUp("cannot ask for the cores");
    int last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &allowed))
        --last;
    CPU_ZERO(&allowed);
    CPU_SET(last, &allowed);
    if (sched_setaffinity(0, sizeof allowed, &allowed) == -1)
        giveUp("cannot stay on one core");
}

} // namespace

int main(int argc, char** argv)
{
    std::string_view filter;
    std::string disk;
    bool smoke = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--probe" && i + 2 < argc)
            return runProbe(argv[i + 1], argv[i + 2]) ? 0 : 1;
        if (argument == "--smoke")
            smoke = true;
        else if (argument == "--disk" && i + 1 < argc)
            disk = argv[++i];
        else
            filter = argument;
    }
    if (std::getenv("SYSMGT_WORLD") == nullptr)
        giveUp("run by ./bench, in a private world");

    std::cout.setstate(std::ios::failbit); // the library reports a missing pipe there
    pinToOneCore();
    Session session(smoke, !filter.empty(), disk);
    session.printHead();
    for (const Question& question : kQuestions)
        if (question.name.find(filter) != std::string_view::npos)
            question.ask(session);
    session.printFoot();
}
