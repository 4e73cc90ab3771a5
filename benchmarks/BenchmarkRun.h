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
    static constexpr int kNoLevel = -1;

    std::string work{};
    std::string system{}; ///< other software on the same work; empty for our own
    int rows = 0;         ///< of the catalogue or the table; 0 where there is none
    int level = kNoLevel; ///< log level of what was measured
    double figure = 0;
    std::string baselineName{};
    double baseline = 0;
    double goal = 0; ///< the most that figure / baseline may be; 0 where none is set
    Unit unit = Unit::SECONDS;
    double p50 = 0; ///< of single requests; 0 where they were not taken one by one
    double p99 = 0;
    std::string missing{}; ///< why there is no figure
};

class BenchmarkRun
{
public:
    /// `otherCore` is one on which this process does not run, -1 where there is none.
    BenchmarkRun(bool smoke, bool detailed, std::filesystem::path disk, int otherCore)
        : mSmoke(smoke), mDetailed(detailed), mDisk(std::move(disk)), mOtherCore(otherCore)
    {
    }

    /// A directory on a real file system; empty when there is none to use.
    const std::filesystem::path& disk() const { return mDisk; }
    bool smoke() const { return mSmoke; }
    int otherCore() const { return mOtherCore; }

    /// False for a catalogue whose loading would be half of a smoke run.
    bool takes(int rows) const { return !mSmoke || rows <= 10000; }

    /// Takes each figure once in every round, in turn, and returns the median of each; a smoke run
    /// has one round. A figure that takes less than the kernel's time slice lets the median pass
    /// over those that another process fell into.
    std::vector<double> interleave(int rounds,
                                   const std::vector<std::function<double()>>& figures) const;

    /// How often a figure does what it measures: `count` times, and less often in a smoke run.
    int repetitions(int count) const;

    /// The mean of `count` runs in a row. Of several, one more in front of them is not measured:
    /// the caches are the last figure's.
    double secondsEach(int count, const std::function<void()>& work) const;

    /// The rows that follow belong to this benchmark.
    void begin(const std::string& name) { mName = name; }

    /// Prints the line at once.
    void report(const Row& row);

    /// A figure behind the next line, shown when a benchmark is chosen by its name.
    void detail(const std::string& name, double seconds) const;

    void printHeader() const;
    void printFooter() const;

    /// All rows, the machine and the date.
    void writeJson(const std::string& path) const;

    /// How many goals the figures reported so far have missed; 0 in a smoke run.
    int missedGoals() const { return mMissed; }

private:
    struct Reported {
        std::string name;
        Row row;
    };

    bool isMet(const Row& row) const { return row.figure / row.baseline <= row.goal; }

    bool mSmoke;
    bool mDetailed;
    std::filesystem::path mDisk;
    int mOtherCore;
    std::string mName;
    std::vector<Reported> mReported;
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

/// The times of single requests. A percentile is one of each round's requests, and of these the
/// median: a change of the processor's speed, and another process, are passed over.
class Latencies
{
public:
    void beginRound(int requests)
    {
        mRounds.emplace_back().reserve(static_cast<std::size_t>(requests));
    }
    void add(double seconds) { mRounds.back().push_back(seconds); }
    double percentile(std::size_t percent) const;

private:
    std::vector<std::vector<double>> mRounds;
};
