#include "Completion.h"

#include "Catalogue.h"
#include "CfgPaths.h"
#include "CommandLine.h"

#include <algorithm>
#include <cctype>

namespace
{

constexpr int kLimit = 1; // second; somebody waits at the keyboard

constexpr char kScript[] = R"(# Completion of cfgctl for bash: the program itself knows the words.
_cfgctl() {
    local IFS=$'\n'
    COMPREPLY=($(cfgctl --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null))
    [ "${COMPREPLY[0]}" != '<FILE>' ] || COMPREPLY=()
}
complete -o default -o nosort -F _cfgctl cfgctl
)";

/// The word as the shell would take it, for the quoting that people type.
std::string unquoted(const std::string& typed)
{
    std::string word;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        if (typed[i] == '\\' && i + 1 < typed.size())
            word += typed[++i];
        else if (typed[i] != '"' && typed[i] != '\'')
            word += typed[i];
    }
    return word;
}

std::vector<std::string> liveNames()
{
    const Deadline deadline(kLimit);
    const std::string what;
    try {
        Peer peer(kCfgSocket, "CfgManager", deadline, what, false);
        return Catalogue(peer).readNames();
    } catch (const Failure&) {
        return {}; // nobody would read why
    }
}

std::vector<std::string> optionsOf(const Verb* verb)
{
    std::vector<std::string> all;
    for (const Option& option : options())
        if (holdsWord(kCommonOptions, option.name) ||
            (verb != nullptr && holdsWord(verb->options, option.name)))
            all.push_back(std::string("--") + option.name);
    return all;
}

std::vector<std::string> wordsOf(const char* words)
{
    std::vector<std::string> all;
    forEachWord(words, [&](std::string_view word) { all.emplace_back(word); });
    return all;
}

/// What the words of a verb's help stand for.
std::vector<std::string> valuesOf(const std::string& word)
{
    if (word == "NAME" || word == "NAME=STATE")
        return liveNames();
    if (word == "FILE" || word == "PATH")
        return {"<FILE>"};
    if (word == "VERB") {
        std::vector<std::string> all;
        for (const Verb& verb : verbs())
            all.emplace_back(verb.name);
        return all;
    }
    if (word == "on|off")
        return {"on", "off"};
    return word == "SHELL" ? std::vector<std::string>{"bash"} : std::vector<std::string>();
}

/// What the words before leave open: a value of an option, an option, a verb or an argument.
std::vector<std::string> candidates(const std::vector<std::string>& before, const std::string& last)
{
    const Verb* verb = nullptr;
    const Option* open = nullptr; // its value comes next
    std::size_t plain = 0;
    for (const std::string& word : before) {
        if (open != nullptr) {
            open = nullptr;
        } else if (word.size() > 1 && word[0] == '-') {
            const Option* const option = findOption(word.substr(word[1] == '-' ? 2 : 1));
            open = option != nullptr && option->value != nullptr ? option : nullptr;
        } else if (plain++ == 0) {
            verb = findVerb(word);
        }
    }
    if (open != nullptr)
        return open->words != nullptr ? wordsOf(open->words) : valuesOf(open->value);
    if (last.starts_with('-'))
        return optionsOf(verb);
    if (plain == 0)
        return valuesOf("VERB");
    // The shell makes three words of NAME=STATE.
    if (verb != nullptr && std::string_view(verb->name) == "wait" && plain >= 2)
        return {"Available", "Inprogress", "Unavailable"};
    std::string word = verb == nullptr ? "" : argumentWord(*verb, plain - 1);
    return valuesOf(word);
}

} // namespace

const char* completionScript() { return kScript; }

std::string completionsOf(const std::vector<std::string>& words)
{
    std::vector<std::string> before = words;
    std::string last;
    if (!before.empty()) {
        last = unquoted(before.back());
        before.pop_back();
    }
    if (last == "=")
        last.clear();
    std::string lines;
    for (const std::string& candidate : candidates(before, last)) {
        const bool isOneLine = std::ranges::none_of(
            candidate, [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; });
        if (candidate == "<FILE>")
            lines += candidate + '\n';
        else if (isOneLine && candidate.starts_with(last))
            lines += shellQuoted(candidate) + '\n';
    }
    return lines;
}
