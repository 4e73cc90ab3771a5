#pragma once

// The client's verbs and options as data: help, parsing, completion and "did you mean" come from
// these tables alone. Constant; any thread.

#include <span>
#include <string_view>

struct Session;

/// What an option takes, when it takes something.
struct Option {
    const char* name;  ///< without "--"
    char letter;       ///< 0 for none
    const char* value; ///< how help names its value; nullptr for a flag
    const char* help;
    long least = 0; ///< a number in these bounds, when `most` is not 0
    long most = 0;
    const char* words = nullptr; ///< one of these, separated by blanks
};

/// What a verb does to what is stored. One that overwrites or deletes asks before.
enum class Effect { READS, CHANGES, OVERWRITES, DELETES };

struct Verb {
    const char* group; ///< heading in the help
    const char* name;
    /// Words as the help shows them: "[FILE]" may be left out, "NAME=VALUE…" stands for any number;
    /// what a word is called tells how it is completed.
    const char* arguments;
    const char* help;     ///< one line
    const char* options;  ///< long names, separated by blanks; kCommonOptions come on top
    const char* examples; ///< a line each
    Effect effect;
    int limit;            ///< seconds for all of it, without -t; 0 for none
    const char* waitsFor; ///< what it usually waits for
    void (*run)(Session&);
    bool isStream = false;                ///< prints line by line, as things happen
    const char* tableArguments = nullptr; ///< instead of `arguments` with --table
};

/// The words that the verb wants, with --table or without.
inline std::string_view argumentsOf(const Verb& verb, bool isTable)
{
    return isTable && verb.tableArguments != nullptr ? verb.tableArguments : verb.arguments;
}

std::span<const Verb> verbs();
std::span<const Option> options();

inline constexpr std::string_view kCommonOptions =
    "timeout json dry-run yes socket verbose help version";

/// Null when there is none.
const Verb* findVerb(std::string_view name);
const Option* findOption(std::string_view nameOrLetter);

/// True when `words`, separated by blanks, holds the word.
bool holdsWord(std::string_view words, std::string_view word);

/// Calls with each of the words.
void forEachWord(std::string_view words, const auto& call)
{
    while (!words.empty()) {
        const std::size_t end = words.find(' ');
        if (end != 0)
            call(words.substr(0, end));
        words.remove_prefix(end == std::string_view::npos ? words.size() : end + 1);
    }
}
