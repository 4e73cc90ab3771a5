#pragma once

// Completion of the command line for bash: the shell asks the program for each word. One thread.

#include <string>
#include <vector>

/// What the shell reads once: it calls "cfgctl --complete WORD…" with the words typed so far, the
/// one to complete last.
const char* completionScript();

/// The words that can stand in place of the last one, quoted for the shell, a line each. Names of
/// configurations are asked from the manager, for a second at most; without it there are none.
std::string completionsOf(const std::vector<std::string>& words);
