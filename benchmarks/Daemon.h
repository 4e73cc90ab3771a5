#pragma once

// The real daemon and what it finds on its fixed paths, in the private world of the benchmarks. Its
// siblings do not run; it starts and serves without them.

#include "RawSocket.h"

#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>
#include <sys/un.h>

class BenchmarkRun;

/// The name of the row and configuration with this number.
std::string rowName(int number);

/// What stands on /data: sets of configurations, of which the daemon finds the one placed last.
class DataDirectory
{
public:
    /// In memory, as the world has it, or on the run's disk, if it has one.
    DataDirectory() = default;
    explicit DataDirectory(const std::filesystem::path& disk);
    ~DataDirectory();

    DataDirectory(const DataDirectory&) = delete;
    DataDirectory& operator=(const DataDirectory&) = delete;

    /// Puts a catalogue of `rows` rows, and their files, on /data/cfg; what stood there is kept for
    /// the next time. 0 rows: the factory catalogue.
    void placeCatalogue(int rows);

private:
    void makeCatalogue(int rows);

    bool mMounted = false;
    int mPlacedRows = -1;
};

class Daemon
{
public:
    /// Starts it and returns when it answers.
    explicit Daemon(const std::string& level);
    ~Daemon();

    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    pid_t pid() const { return mPid; }
    const sockaddr_un& address() const { return mAddress; }

    /// From its start to its first answer.
    double startSeconds() const { return mStartSeconds; }

    /// What it has computed so far, on all its threads.
    double cpuSeconds() const;

    /// Moves its socket aside, so that another daemon may run beside it.
    void moveTo(const std::string& path);

private:
    pid_t mPid;
    sockaddr_un mAddress;
    double mStartSeconds = 0;
};

/// The log collector: while it lives, daemons that start have a pipe, and what they write is read.
class Collector
{
public:
    Collector();
    ~Collector();

    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

private:
    pid_t mPid;
};

/// Messages to the daemon.
PreparedMessage getItem(const std::string& row);

/// The same for any row: whichever is asked for next.
class ItemRequest
{
public:
    PreparedMessage& of(int row);

private:
    PreparedMessage mGet = getItem(rowName(0));
    std::size_t mDigits = mGet.find(rowName(0)) + rowName(0).find('0');
};

PreparedMessage setAutoStart(const std::string& row);
PreparedMessage command(const std::string& id,
                        const std::map<std::string, std::string>& parameters = {});

/// Asks for an item of this row and gives up unless its value comes.
void expectItem(RawSocket& client, const Daemon& daemon, int row);

struct Memory {
    double resident;
    double peak;
};
Memory memoryOf(pid_t pid);
void resetPeak(pid_t pid);
