#pragma once

// Random operations for a test against a model: as many as SYSMGT_OPERATIONS says, in the order
// that SYSMGT_SEED gives. They log nothing.

#include "ChildProcess.h"
#include "DbgPrintClient.h"

#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <string>

/// A random number below another.
using Draw = std::function<unsigned(std::size_t)>;

/// Calls operation(), which says what it has done, until a check of the test has failed. Then the
/// last ones are printed.
inline void runOperations(const char* on, int usual,
                          std::function<std::string(const Draw&)> operation)
{
    gDbgLevel = 5;
    const int seed = variable("SYSMGT_SEED", 20260301);
    std::mt19937 random(static_cast<unsigned>(seed));
    std::deque<std::string> last(20);
    int done = 0;
    for (; done < variable("SYSMGT_OPERATIONS", usual) && !testing::Test::HasFailure(); ++done) {
        last.push_back(
            operation([&](std::size_t below) { return static_cast<unsigned>(random() % below); }));
        last.pop_front();
    }
    std::cout << done << " operations on the " << on << ", seed " << seed << std::endl;
    if (testing::Test::HasFailure())
        for (const std::string& each : last)
            std::cout << "    " << each << std::endl;
}
