// Process entry of the daemon: options, pid file and start file for the supervising system, then
// the manager's own threads do all the work.

#include "ConfigurationManager.h"
#include "DbgPrintClient.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <optional>
#include <string>
#include <tuple>
#include <unistd.h>

namespace
{

struct Options {
    bool detach = false;
    std::optional<std::string> pidFile;
    std::optional<std::string> startFile;
};

Options parse(int argc, char** argv)
{
    Options options;
    opterr = 0; // only the usage is printed
    for (int option; (option = getopt(argc, argv, "v:dp:s:")) != -1;) {
        switch (option) {
        case 'v':
            gDbgLevel = std::atoi(optarg);
            break;
        case 'd':
            options.detach = true;
            break;
        case 'p':
            options.pidFile = optarg;
            break;
        case 's':
            options.startFile = optarg;
            break;
        default:
            std::fprintf(stderr, "Usage: %s [-v verboseLevel] [-d] [-p pidfile] [-s startfile]\n",
                         argv[0]);
            std::exit(1);
        }
    }
    return options;
}

/// Supervisors that ask for a pid file create its directory; a missing one is not reported.
void writePidFile(const std::string& path)
{
    if (std::FILE* file = std::fopen(path.c_str(), "w")) {
        std::fprintf(file, "%u\n", static_cast<unsigned>(getpid()));
        std::fclose(file);
    }
}

void writeStartFile(const std::string& path)
{
    std::FILE* file;
    do
        file = std::fopen(path.c_str(), "w");
    while (file == nullptr && errno == EINTR);
    if (file == nullptr) {
        std::perror(path.c_str());
        return;
    }
    std::fprintf(file, "%u:%u:%u\n", 0U, static_cast<unsigned>(getpid()), 0U);
    std::fclose(file);
}

/// Everything between the manager's construction and its destruction.
void serve(const Options& options)
{
    ConfigurationManager manager;
    if (options.detach)
        std::ignore = daemon(1, 1); // one that cannot detach serves in the foreground
    if (options.pidFile)
        writePidFile(*options.pidFile);
    if (options.startFile)
        writeStartFile(*options.startFile);

    manager.init();
    malloc_trim(0); // what only the start needed
    while (pause() == -1 && errno == EINTR) {
    }
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = parse(argc, argv);

    // A catalogue larger than the system allows a file to be is a store that fails, not the end.
    std::signal(SIGXFSZ, SIG_IGN);

    // Texts of whole catalogues are large and short-lived: their memory goes back to the device at
    // once, and is not kept for the next one.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 2 << 20);

    try {
        serve(options);
    } catch (...) {
        // Without this the process would end without unwinding. Caught and thrown again, the
        // exception still ends it, but the manager has been destroyed by then.
        throw;
    }
    return 0;
}
