#include "Completion.h"

#include "Catalogue.h"
#include "CfgPaths.h"
#include "CommandLine.h"
#include "terminal/TerminalText.h"

namespace
{

constexpr int kLimit = 1; // second; somebody waits at the keyboard

constexpr char kScript[] = R"(# Completion of cfgctl for bash: the program itself knows the words.
_cfgctl() {
    mapfile -t COMPREPLY < <(cfgctl --complete "${COMP_LINE:0:COMP_POINT}" "$2" 2>/dev/null)
    [ "${COMPREPLY[0]}" != '<FILE>' ] || COMPREPLY=()
}
complete -o default -o nosort -F _cfgctl cfgctl
)";

/// A command line as the shell takes it, with the quoting that people type.
struct TypedLine {
    explicit TypedLine(const std::string& line)
    {
        for (std::size_t i = 0; i < line.size(); ++i) {
            const char c = line[i];
            if (c == ' ' && quote == 0) {
                if (!raw.empty())
                    before.push_back(last);
                raw.clear();
                last.clear();
                continue;
            }
            raw += c;
            const bool isQuote = c == quote || (quote == 0 && (c == '"' || c == '\''));
            if (isQuote)
                quote = quote == 0 ? c : '\0';
            else if (c == '\\' && quote != '\'' && i + 1 < line.size())
                last += raw.append(1, line[++i]).back();
            else
                last += c;
        }
    }

    std::vector<std::string> before; ///< the words before the last
    std::string last;                ///< where the cursor stands
    std::string raw;                 ///< the same as it was typed
    char quote = 0;                  ///< that is open at the cursor
};

std::vector<std::string> liveNames()
{
    const Deadline deadline(kLimit);
    const std::string what;
    try {
        Peer peer(kCfgSocket, "CfgManager", deadline, what, false);
        std::vector<std::string> names = Catalogue(peer).readNames();
        std::erase_if(names, [](const std::string& name) { return !isValidText(name); });
        return names;
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

/// What the words of a verb's help stand for; `last` is what has been typed of it.
std::vector<std::string> valuesOf(const std::string& word, const std::string& last)
{
    std::vector<std::string> names;
    if (word == "NAME" || word == "NAME=STATE")
        names = liveNames();
    if (const std::size_t at = last.rfind('='); word == "NAME=STATE" && at != std::string::npos)
        for (const char* const state : {"Available", "Inprogress", "Unavailable"})
            names.push_back(last.substr(0, at + 1) + state);
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
    return word == "SHELL" ? std::vector<std::string>{"bash"} : names;
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
        return open->words != nullptr ? wordsOf(open->words) : valuesOf(open->value, last);
    if (last.starts_with('-'))
        return optionsOf(verb);
    if (plain == 0)
        return valuesOf("VERB", last);
    std::string word = verb == nullptr ? "" : argumentWord(verb->arguments, plain - 1);
    return valuesOf(word, last);
}

} // namespace

const char* completionScript() { return kScript; }

std::string completionsOf(const std::string& line, const std::string& replaced)
{
    TypedLine typed(line);
    if (!typed.before.empty())
        typed.before.erase(typed.before.begin()); // the program
    // What the shell keeps of the word.
    const bool isPart = typed.raw.ends_with(replaced);
    const std::size_t kept =
        isPart ? TypedLine(typed.raw.substr(0, typed.raw.size() - replaced.size())).last.size() : 0;
    std::string lines;
    for (const std::string& candidate : candidates(typed.before, typed.last)) {
        const bool isShowable = typed.quote == 0 || printableText(candidate) == candidate;
        if (candidate == "<FILE>")
            lines += candidate + '\n';
        else if (isShowable && candidate.starts_with(typed.last) && candidate.size() > kept)
            lines +=
                (typed.quote != 0 ? candidate.substr(kept) : shellQuoted(candidate.substr(kept))) +
                '\n';
    }
    return lines;
}
