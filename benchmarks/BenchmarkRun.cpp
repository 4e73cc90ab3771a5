#include "BenchmarkRun.h"

#include "RawSocket.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <json/json.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace
{

constexpr char kFormat[] = "%-57s %6s %5s  %9s  %-46s %6s  %7s  %s\n";

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

std::string formatLevel(int level) { return level == Row::kNoLevel ? "-" : std::to_string(level); }

std::string processorName()
{
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);)
        if (line.starts_with("model name"))
            return line.substr(line.find(':') + 2);
    return "unknown";
}

Json::Value machine()
{
    utsname system{};
    uname(&system);
    Json::Value value;
    value["processor"] = processorName();
    value["cores"] = Json::Int64{sysconf(_SC_NPROCESSORS_ONLN)};
    const std::string release = system.release;
    value["system"] = std::string(system.sysname) + " " + release.substr(0, release.find('-')) +
                      " " + system.machine;
    double load = 0;
    if (getloadavg(&load, 1) == 1)
        value["load"] = load;
    return value;
}

std::string today()
{
    const std::time_t now = std::time(nullptr);
    std::array<char, 32> text;
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    return text.data();
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

int BenchmarkRun::repetitions(int count) const { return mSmoke ? std::min(count, 10) : count; }

double BenchmarkRun::secondsEach(int count, const std::function<void()>& work) const
{
    count = repetitions(count);
    if (count > 1)
        work();
    const Stopwatch watch;
    for (int i = 0; i < count; ++i)
        work();
    return watch.seconds() / count;
}

void BenchmarkRun::report(const Row& row)
{
    mReported.push_back({mName, row});
    const std::string work = row.system.empty() ? row.work : row.work + ": " + row.system;
    const std::string rows = row.rows == 0 ? "-" : std::to_string(row.rows);
    const std::string level = formatLevel(row.level);
    if (!row.missing.empty()) {
        std::printf(kFormat, work.c_str(), rows.c_str(), level.c_str(), "-", row.missing.c_str(),
                    "", "", "");
        return;
    }
    std::string goal;
    std::string verdict;
    if (row.goal != 0) {
        goal = formatNumber("%.2f", row.goal);
        verdict = mSmoke ? "-" : isMet(row) ? "met" : "NOT MET";
        if (!mSmoke && !isMet(row))
            ++mMissed;
    }
    const std::string baseline = row.baselineName + "  " + formatFigure(row.baseline, row.unit);
    std::printf(kFormat, work.c_str(), rows.c_str(), level.c_str(),
                formatFigure(row.figure, row.unit).c_str(), baseline.c_str(),
                formatNumber("%.3f", row.figure / row.baseline).c_str(), goal.c_str(),
                verdict.c_str());
    std::fflush(stdout);
}

void BenchmarkRun::detail(const std::string& name, double seconds) const
{
    if (mDetailed)
        std::printf("    %-48s %10s\n", name.c_str(), formatFigure(seconds, Unit::SECONDS).c_str());
}

void BenchmarkRun::printHeader() const
{
    std::printf(kFormat, "work", "rows", "level", "figure", "baseline", "ratio", "goal <=", "");
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

void BenchmarkRun::writeJson(const std::string& path) const
{
    Json::Value document;
    document["date"] = today();
    document["machine"] = machine();
    document["smoke"] = mSmoke;
    for (const auto& [name, row] : mReported) {
        Json::Value& line = document["rows"].append(Json::objectValue);
        line["name"] = name;
        line["work"] = row.work;
        line["system"] = row.system.empty() ? "CfgManager" : row.system;
        line["rows"] = row.rows == 0 ? Json::Value() : row.rows;
        line["level"] = row.level == Row::kNoLevel ? Json::Value() : row.level;
        line["unit"] = row.unit == Unit::BYTES ? "bytes" : "seconds";
        line["base"] = row.baselineName;
        line["goal"] = row.goal == 0 ? Json::Value() : row.goal;
        if (!row.missing.empty()) {
            line["missing"] = row.missing;
            continue;
        }
        line["value"] = row.figure;
        line["base_value"] = row.baseline;
        line["ratio"] = row.figure / row.baseline;
        line["met"] = row.goal == 0 ? Json::Value() : isMet(row);
        if (row.p50 != 0) {
            line["p50"] = row.p50;
            line["p99"] = row.p99;
        }
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = " ";
    builder["precision"] = 6;
    std::ofstream file(path);
    file << Json::writeString(builder, document) << '\n';
    if (!file.flush())
        abortBenchmarks("cannot write " + path);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

double Latencies::percentile(std::size_t percent) const
{
    std::vector<double> found;
    for (std::vector<double> round : mRounds) {
        const auto nth = round.begin() + static_cast<std::ptrdiff_t>(round.size() * percent / 100);
        std::nth_element(round.begin(), nth, round.end());
        found.push_back(*nth);
    }
    return median(std::move(found));
}
