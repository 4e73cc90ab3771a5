#pragma once

// The command line: what was asked for, and the help for those who ask. One thread.

#include "Failure.h"
#include "Verb.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// A verb with its arguments and options, as the tables allow them.
struct Invocation {
    const Verb* verb = nullptr;
    std::vector<std::string> arguments;
    std::map<std::string, std::string, std::less<>> options; ///< by long name; "" for a flag

    bool has(std::string_view option) const { return options.contains(option); }
    std::string get(std::string_view option, const std::string& otherwise = {}) const;
    int number(std::string_view option, int otherwise) const;

    /// "" for one that was left out.
    std::string argument(std::size_t index) const;

    /// The verb and its arguments, to be shown: printable and not too long.
    std::string asked() const;

    /// The same to be typed again.
    std::string typed() const;
};

/// Reads the words behind the program's name: options before or after the verb, "--" before words
/// that begin with "-". Throws Failure(EXIT_USAGE).
Invocation parseCommandLine(const std::vector<std::string>& words);

/// True when one of the words before "--" is --json: for failures before anything is known.
bool wantsJson(const std::vector<std::string>& words);

std::string helpText();
std::string helpText(const Verb& verb);
std::string usageLine(const Verb& verb, bool isTable = false);

/// ", did you mean 'list'?" for the nearest of the candidates; "" when none is near.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

/// The word that one of a verb's arguments has in its help, without brackets: "NAME"; "" beyond the
/// last.
std::string argumentWord(std::string_view arguments, std::size_t index);

/// The verb that the words of a command line name, whatever else is wrong with them, or null.
const Verb* namedVerb(const std::vector<std::string>& words);

/// A text of the user's as an error shows it: printable, in quotes, cut.
std::string inQuotes(std::string_view text);

/// A word as one types it to a shell: with a backslash before each character that the shell acts
/// on, or as $'…' when a terminal must not get it as it is.
std::string shellQuoted(const std::string& word);

/// The same as the first argument of a verb: behind "--" where it would pass for an option.
std::string quotedArgument(const std::string& word);
