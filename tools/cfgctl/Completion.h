#pragma once

// Completion of the command line for bash: the shell asks the program for each word. One thread.

#include <string>

/// What the shell reads once: it calls "cfgctl --complete LINE WORD" with the command line up to
/// the cursor, and the end of it that it will replace: names may hold what parts words to the
/// shell.
const char* completionScript();

/// What can stand in place of `replaced`, quoted for the shell, a line each. Names of
/// configurations are asked from the manager, for a second at most; without it there are none.
std::string completionsOf(const std::string& line, const std::string& replaced);
