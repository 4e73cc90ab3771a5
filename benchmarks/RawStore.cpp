#include "RawStore.h"

#include "BenchmarkRun.h"
#include "CfgPaths.h"
#include "Daemon.h"
#include "RawSocket.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

void synchronise(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    fsync(descriptor);
    close(descriptor);
}

void replace(const std::string& target, const std::function<void(std::ofstream&)>& write)
{
    const std::string beside = target + ".new";
    {
        std::ofstream file(beside);
        write(file);
    }
    synchronise(beside);
    if (rename(beside.c_str(), target.c_str()) == -1)
        abortBenchmarks("cannot replace " + target);
    synchronise(std::filesystem::path(target).parent_path());
}

void statEachFile(const std::string& directory)
{
    dirent** list = nullptr;
    const int count = scandir(directory.c_str(), &list, nullptr, alphasort);
    for (int i = 0; i < count; ++i) {
        struct stat info;
        stat((directory + '/' + list[i]->d_name).c_str(), &info);
        std::free(list[i]);
    }
    std::free(list);
}

} // namespace

Json::Value parseFile(const std::string& path)
{
    std::ifstream file(path);
    Json::Value document;
    Json::Reader reader;
    if (!reader.parse(file, document))
        abortBenchmarks("cannot parse " + path);
    return document;
}

void storeCopy(const Json::Value& document, const std::string& target)
{
    replace(target, [&](std::ofstream& file) {
        const Json::Value copy = document;
        file << copy;
    });
}

void storeText(const std::string& text, const std::string& target)
{
    replace(target, [&](std::ofstream& file) { file << text; });
}

std::vector<double> askProbe(const std::string& word, const std::string& text)
{
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) == -1)
        abortBenchmarks("cannot make a pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/proc/self/exe", "Benchmarks", "--probe", word.c_str(), text.c_str(), nullptr);
        abortBenchmarks("cannot run a probe");
    }
    close(ends[1]);
    std::array<char, 256> printed{};
    if (read(ends[0], printed.data(), printed.size() - 1) <= 0)
        abortBenchmarks("a probe failed");
    close(ends[0]);
    waitpid(pid, nullptr, 0);
    std::istringstream words(printed.data());
    return {std::istream_iterator<double>(words), {}};
}

double rawStartSeconds()
{
    const Stopwatch watch;
    askProbe("start", kStoredCatalogue);
    return watch.seconds();
}

double rawParseBytes(const std::string& path) { return askProbe("parse", path).at(0); }

bool runProbe(const std::string& word, const std::string& path)
{
    const double before = memoryOf(getpid()).resident;
    const Json::Value document = parseFile(path);
    if (word == "start") {
        statEachFile(kCfgDir);
        storeCopy(document, kStoredCatalogue);
    } else if (word != "parse") {
        return false;
    }
    std::printf("%.0f\n", memoryOf(getpid()).resident - before);
    std::fflush(stdout);
    _exit(0); // a daemon that has started does not free its tree either
}
