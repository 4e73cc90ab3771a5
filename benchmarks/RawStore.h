#pragma once

// What the JSON library and the kernel alone take to load, store and scan a catalogue. The probes
// run in a process of their own, as the daemon does: this program, started again with --probe.

#include <json/json.h>
#include <string>

Json::Value parseFile(const std::string& path);

/// A copy of the document is written to a new file, synchronised, renamed over `target`, and the
/// directory synchronised.
void storeCopy(const Json::Value& document, const std::string& target);

/// Parses the stored catalogue, stats each file beside it, and stores the catalogue once.
double rawStartSeconds();

/// The memory that a process grows by when it parses the file.
double rawParseBytes(const std::string& path);

/// The probes' side; false when there is no probe of that name.
bool runProbe(const std::string& word, const std::string& path);
