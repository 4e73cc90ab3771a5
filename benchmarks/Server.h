#pragma once

// What answers the questions of the benchmarks: the daemon, a bare process, and other software.

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

/// Asks once for the text of the row with this number, and waits for the answer.
using Question = std::function<void(int row)>;

struct Server {
    std::string system{};                 ///< empty for our own
    int rows = 0;                         ///< that it knows
    int level = -1;                       ///< log level; -1 where there is none
    std::function<Question()> connect{};  ///< makes a client, for the process that calls it
    std::vector<pid_t> processes{};       ///< that work at an answer
    std::shared_ptr<const void> server{}; ///< ends them
    std::string missing{};                ///< why it does not run; empty when it does
};
