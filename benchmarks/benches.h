#pragma once

// The benchmarks and what each answers, one file each.

class BenchmarkRun;

void benchGet(BenchmarkRun& run);       ///< What does a GET cost over a raw round trip?
void benchStore(BenchmarkRun& run);     ///< What does a store cost, and an update of its rows?
void benchEvents(BenchmarkRun& run);    ///< What does an event cost, and a stuck subscriber?
void benchStart(BenchmarkRun& run);     ///< How long does a start take?
void benchMemory(BenchmarkRun& run);    ///< How much memory does a catalogue take?
void benchDatagrams(BenchmarkRun& run); ///< How long can one datagram keep the responder busy?
void benchFinders(BenchmarkRun& run);   ///< Do the finders stay linear on the worst texts?
void benchLog(BenchmarkRun& run);       ///< What does a log line cost?
void probeLines(bool smoke);            ///< In a process of its own: ours, and spdlog's or 0.
void benchTables(BenchmarkRun& run);    ///< Do tables stay linear in their rows?
