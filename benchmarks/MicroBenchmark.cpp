#include "MicroBenchmark.h"

#include "BenchmarkRun.h"

#include <vector>

namespace
{

class TimeReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration)
                mTaken[run.run_name.function_name].push_back(run.cpu_accumulated_time /
                                                             static_cast<double>(run.iterations));
    }

    std::map<std::string, double> medians() const
    {
        std::map<std::string, double> found;
        for (const auto& [name, values] : mTaken)
            found[name] = median(values);
        return found;
    }

private:
    std::map<std::string, std::vector<double>> mTaken;
};

} // namespace

std::map<std::string, double> medianOperationTimes(
    const BenchmarkRun& run,
    const std::map<std::string, std::function<void(benchmark::State&)>>& operations)
{
    benchmark::ClearRegisteredBenchmarks();
    for (const auto& [name, operation] : operations)
        benchmark::RegisterBenchmark(name.c_str(), operation)
            ->Repetitions(run.smoke() ? 1 : 15)
            ->MinTime(run.smoke() ? 0.001 : 0.02);

    std::vector<std::string> arguments{"bench", "--benchmark_enable_random_interleaving=true"};
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());

    TimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.medians();
}
