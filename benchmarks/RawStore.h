#pragma once

// What the JSON library and the kernel alone take to load, store and scan a catalogue. The probes
// run in a process of their own, as the daemon does: this program, started again with a word.

#include <json/json.h>
#include <string>

Json::Value parseFile(const std::string& path);

/// A copy of the document is written to a new file, synchronised, renamed over the old one, and the
/// directory synchronised.
void storeCopy(const Json::Value& document, const std::string& directory, const std::string& name);

/// Parses the catalogue on /data/cfg, looks at each file there, and stores the catalogue once.
double secondsOfBareStart();

/// What a bare process grows by when it parses the file.
double bytesOfBareParse(const std::string& path);

/// The probes' side; false when the word is none of theirs.
bool runProbe(const std::string& word, const std::string& path);
