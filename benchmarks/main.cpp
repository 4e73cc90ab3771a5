// Entry of the benchmarks; ./bench builds them and runs them in a private world.

#include "BenchmarkRun.h"
#include "RawSocket.h"
#include "RawStore.h"
#include "benches.h"

#include <cstdlib>
#include <iostream>
#include <sched.h>
#include <string>
#include <string_view>
#include <vector>

namespace
{

struct Bench {
    std::string_view name;
    void (*run)(BenchmarkRun& run);
};

constexpr Bench kBenches[] = {
    {"get", benchGet},         {"store", benchStore},   {"events", benchEvents},
    {"start", benchStart},     {"memory", benchMemory}, {"datagrams", benchDatagrams},
    {"finders", benchFinders}, {"log", benchLog},       {"tables", benchTables},
};

/// To the last core that this process may use; its children stay there too.
void pinToOneCore()
{
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == -1)
        abortBenchmarks("cannot ask for the cores");
    int last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &allowed))
        --last;
    CPU_ZERO(&allowed);
    CPU_SET(last, &allowed);
    if (sched_setaffinity(0, sizeof allowed, &allowed) == -1)
        abortBenchmarks("cannot stay on one core");
}

struct Options {
    bool smoke = false;
    std::string disk;
    std::string filter;
};

Options parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--smoke")
            options.smoke = true;
        else if (argument == "--disk" && i + 1 < argc)
            options.disk = argv[++i];
        else
            options.filter = argument;
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string_view(argv[1]) == "--probe")
        return runProbe(argv[2], argv[3]) ? 0 : 1;
    if (std::getenv("SYSMGT_WORLD") == nullptr)
        abortBenchmarks("run by ./bench, in a private world");

    const Options options = parse(argc, argv);
    std::vector<Bench> chosen;
    for (const Bench& bench : kBenches)
        if (bench.name.find(options.filter) != std::string_view::npos)
            chosen.push_back(bench);
    if (chosen.empty())
        abortBenchmarks("no benchmark is named like " + options.filter);

    std::cout.setstate(std::ios::failbit); // the library reports a missing pipe there
    pinToOneCore();
    BenchmarkRun run(options.smoke, !options.filter.empty(), options.disk);
    run.printHeader();
    for (const Bench& bench : chosen)
        bench.run(run);
    run.printFooter();
    return run.missedGoals() == 0 ? 0 : 1;
}
