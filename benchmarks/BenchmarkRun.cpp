#include "BenchmarkRun.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace
{

constexpr char kFormat[] = "%-58s %10s  %-40s %7s  %7s  %-8s %s\n";

std::string formatNumber(const char* format, double value)
{
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

std::string formatFigure(double value, Unit unit)
{
    if (unit == Unit::BYTES)
        return formatNumber("%.2f MB", value / 1e6);
    if (value < 1e-6)
        return formatNumber("%.2f ns", value * 1e9);
    if (value < 1e-3)
        return formatNumber("%.2f us", value * 1e6);
    return formatNumber("%.2f ms", value * 1e3);
}

} // namespace

std::vector<double>
BenchmarkRun::interleave(int rounds, const std::vector<std::function<double()>>& figures) const
{
    std::vector<std::vector<double>> taken(figures.size());
    for (const auto& figure : figures)
        figure(); // warms caches and files
    for (int round = 0; round < (mSmoke ? 1 : rounds); ++round)
        for (std::size_t i = 0; i < figures.size(); ++i)
            taken[i].push_back(figures[i]());

    std::vector<double> medians;
    for (auto& values : taken)
        medians.push_back(median(std::move(values)));
    return medians;
}

double BenchmarkRun::secondsEach(int count, const std::function<void()>& work) const
{
    if (mSmoke)
        count = std::min(count, 10);
    const Stopwatch watch;
    for (int i = 0; i < count; ++i)
        work();
    return watch.seconds() / count;
}

void BenchmarkRun::report(const Row& row)
{
    const double ratio = row.figure / row.baseline;
    const bool goalMet = ratio <= row.goal;
    const char* verdict = mSmoke ? "-" : goalMet ? "met" : "NOT MET";
    if (row.goal == 0)
        verdict = "";
    else if (!mSmoke && !goalMet)
        ++mMissed;
    const std::string baseline = row.baselineName + "  " + formatFigure(row.baseline, row.unit);
    std::printf(kFormat, row.work.c_str(), formatFigure(row.figure, row.unit).c_str(),
                baseline.c_str(), formatNumber("%.3f", ratio).c_str(),
                row.goal == 0 ? "" : formatNumber("%.2f", row.goal).c_str(), verdict,
                row.level.c_str());
    std::fflush(stdout);
}

void BenchmarkRun::detail(const std::string& name, double seconds) const
{
    if (mDetailed)
        std::printf("    %-48s %10s\n", name.c_str(), formatFigure(seconds, Unit::SECONDS).c_str());
}

void BenchmarkRun::printHeader() const
{
    std::printf(kFormat, "work", "figure", "baseline", "ratio", "goal <=", "", "log level");
}

void BenchmarkRun::printFooter() const
{
    double load = 0;
    if (getloadavg(&load, 1) == 1 && load > 2)
        std::printf("\nThe machine is busy (load %.1f): the ratios are less sure than they look.\n",
                    load);
    if (mSmoke)
        std::puts("\nA smoke run takes each figure once and judges nothing.");
    else if (mMissed == 0)
        std::puts("\nAll goals are met.");
    else
        std::printf("\nGoals not met: %d\n", mMissed);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}
