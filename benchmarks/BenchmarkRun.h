#pragma once

// One run of the benchmarks: how thorough it is, how its figures are taken, and the table that it
// fills. Every ratio is one of medians from interleaved runs (A B A B ...), so that what else the
// machine does falls on both sides. One thread, pinned to one core with all its children.

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

enum class Unit { SECONDS, BYTES };

/// One line of the table.
struct Row {
    std::string work;
    double figure;
    std::string baselineName;
    double baseline;
    double goal;       ///< the most that figure / baseline may be; 0 where none is set
    std::string level; ///< log level of what was measured
    Unit unit = Unit::SECONDS;
};

class BenchmarkRun
{
public:
    BenchmarkRun(bool smoke, bool detailed, std::filesystem::path disk)
        : mSmoke(smoke), mDetailed(detailed), mDisk(std::move(disk))
    {
    }

    /// A directory on a real file system; empty when there is none to use.
    const std::filesystem::path& disk() const { return mDisk; }
    bool smoke() const { return mSmoke; }

    /// Takes each figure once in every round, in turn, and returns the median of each; a smoke run
    /// has one round. A figure that takes less than the kernel's time slice lets the median pass
    /// over those that another process fell into.
    std::vector<double> interleave(int rounds,
                                   const std::vector<std::function<double()>>& figures) const;

    /// The mean of `count` runs in a row.
    double secondsEach(int count, const std::function<void()>& work) const;

    /// Prints the line at once.
    void report(const Row& row);

    /// A figure behind the next line, shown when a benchmark is chosen by its name.
    void detail(const std::string& name, double seconds) const;

    void printHeader() const;
    void printFooter() const;

    /// How many goals the figures reported so far have missed; 0 in a smoke run.
    int missedGoals() const { return mMissed; }

private:
    bool mSmoke;
    bool mDetailed;
    std::filesystem::path mDisk;
    int mMissed = 0;
};

double median(std::vector<double> values);

class Stopwatch
{
public:
    double seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    }

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};
