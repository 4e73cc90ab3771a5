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

/// The cores that this process may use.
std::vector<int> cores()
{
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == -1)
        abortBenchmarks("cannot ask for the cores");
    std::vector<int> found;
    for (int core = 0; core < CPU_SETSIZE; ++core)
        if (CPU_ISSET(core, &allowed))
            found.push_back(core);
    return found;
}

/// Children stay there too.
void stayOn(int core)
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    if (sched_setaffinity(0, sizeof one, &one) == -1)
        abortBenchmarks("cannot stay on one core");
}

struct Options {
    bool smoke = false;
    std::string disk;
    std::string json;
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
        else if (argument == "--json" && i + 1 < argc)
            options.json = argv[++i];
        else
            options.filter = argument;
    }
    return options;
}

int probe(std::string_view word, const std::string& text)
{
    if (word != "line")
        return runProbe(std::string(word), text) ? 0 : 1;
    probeLines(text == "smoke");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string_view(argv[1]) == "--probe")
        return probe(argv[2], argv[3]);
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
    const std::vector<int> allowed = cores();
    stayOn(allowed.back());
    BenchmarkRun run(options.smoke, !options.filter.empty(), options.disk,
                     allowed.size() > 1 ? allowed.front() : -1);
    run.printHeader();
    for (const Bench& bench : chosen) {
        run.begin(std::string(bench.name));
        bench.run(run);
    }
    run.printFooter();
    if (!options.json.empty())
        run.writeJson(options.json);
    return run.missedGoals() == 0 ? 0 : 1;
}
