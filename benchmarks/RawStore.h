#pragma once

// What the JSON library and the kernel alone take to load, store and scan a catalogue. The probes
// run in a process of their own, as the daemon does: this program, started again with --probe.

#include <json/json.h>
#include <string>
#include <vector>

Json::Value parseFile(const std::string& path);

/// A copy of the document is written to a new file, synchronised, renamed over `target`, and the
/// directory synchronised.
void storeCopy(const Json::Value& document, const std::string& target);

/// The same with a text that is there already.
void storeText(const std::string& text, const std::string& target);

/// Parses the stored catalogue, stats each file beside it, and stores the catalogue once.
double rawStartSeconds();

/// The memory that a process grows by when it parses the file.
double rawParseBytes(const std::string& path);

/// Runs this program as a probe, which is given the text, and returns the numbers that it prints.
std::vector<double> askProbe(const std::string& word, const std::string& text);

/// The probes' side, but for those of a benchmark; false when there is no probe of that name.
bool runProbe(const std::string& word, const std::string& path);
