#pragma once

// Figures of single operations, taken with Google Benchmark; its repetitions are interleaved.

#include <benchmark/benchmark.h>
#include <functional>
#include <map>
#include <string>

class BenchmarkRun;

/// Runs the operations; the median time of one iteration of each, in seconds.
std::map<std::string, double> medianOperationTimes(
    const BenchmarkRun& run,
    const std::map<std::string, std::function<void(benchmark::State&)>>& operations);
