#include "Leftover.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <tuple>
#include <unistd.h>

namespace
{

// What the signal handler removes, the last first; "" for a free place. A path that finds no place
// is removed by its object only.
constexpr std::size_t kMost = 4; // a socket, a file, and their directories
constexpr std::size_t kLongest = 512;
std::array<std::array<char, kLongest>, kMost> gPaths;

// What the handler says, and how long it is; 0 while it is written.
std::array<char, kLongest> gWords;
volatile std::sig_atomic_t gWordCount = 0;

void removePath(const char* path)
{
    if (unlink(path) == -1)
        rmdir(path);
}

extern "C" void removeAllAndExit(int signal)
{
    for (std::size_t i = kMost; i-- > 0;)
        if (gPaths.at(i)[0] != '\0')
            removePath(gPaths.at(i).data());
    if (gWordCount > 0 && signal != SIGPIPE)
        std::ignore = write(STDERR_FILENO, gWords.data(), static_cast<std::size_t>(+gWordCount));
    _exit(128 + signal);
}

} // namespace

Leftover::Leftover(const std::string& path) : mPath(path)
{
    for (const int ending : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        if (std::signal(ending, removeAllAndExit) == SIG_IGN)
            std::signal(ending, SIG_IGN); // as nohup wants it
    const auto isFree = [](const auto& place) { return place[0] == '\0'; };
    const auto place = std::ranges::find_if(gPaths, isFree);
    if (place == gPaths.end() || path.size() >= kLongest)
        return;
    std::copy_n(path.c_str() + 1, path.size(), place->begin() + 1);
    std::atomic_signal_fence(std::memory_order_release); // a signal finds all of it, or nothing
    (*place)[0] = path[0];
}

Leftover::~Leftover()
{
    if (!mPath.empty())
        removePath(mPath.c_str());
    leave();
}

void Leftover::leave()
{
    for (auto& place : gPaths)
        if (mPath == place.data())
            place[0] = '\0';
    mPath.clear();
}

void Leftover::sayAtSignal(const std::string& words)
{
    gWordCount = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    const std::string line = words.empty() ? "" : "\ncfgctl: " + words + '\n';
    const std::size_t count = std::min(line.size(), gWords.size());
    std::copy_n(line.begin(), count, gWords.begin());
    std::atomic_signal_fence(std::memory_order_seq_cst);
    gWordCount = static_cast<std::sig_atomic_t>(count);
}

void Leftover::leaveAllToParent()
{
    gWordCount = 0;
    for (auto& place : gPaths)
        place[0] = '\0';
}
