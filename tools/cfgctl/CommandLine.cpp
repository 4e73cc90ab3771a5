#include "CommandLine.h"

#include "terminal/TerminalText.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <numeric>
#include <utility>

namespace
{

constexpr std::size_t kShownColumns = 60;
constexpr std::size_t kHelpColumns = 30;

constexpr char kSynopsis[] = "cfgctl [OPTIONS] VERB [ARGUMENTS]";

std::string seeHelp(const Verb* verb)
{
    return verb == nullptr ? "cfgctl help" : std::string("cfgctl help ") + verb->name;
}

Failure usage(const std::string& problem, const Verb* verb = nullptr)
{
    return {EXIT_USAGE, problem, seeHelp(verb)};
}

/// How many letters to change, insert or take away.
std::size_t distance(std::string_view left, std::string_view right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t changed = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

std::vector<std::string> names(const auto& table)
{
    std::vector<std::string> all;
    for (const auto& row : table)
        all.emplace_back(row.name);
    return all;
}

void checkValue(const Option& option, const std::string& value)
{
    const std::string name = std::string("--") + option.name;
    if (option.most != 0) {
        long number = 0;
        const char* const end = value.data() + value.size();
        const auto [stop, error] = std::from_chars(value.data(), end, number);
        if (error != std::errc() || stop != end || number < option.least || number > option.most)
            throw usage(name + " takes a number from " + std::to_string(option.least) + " to " +
                        std::to_string(option.most) + ", not " + inQuotes(value));
    }
    if (option.words != nullptr && !holdsWord(option.words, value)) {
        std::vector<std::string> words;
        forEachWord(option.words, [&](std::string_view word) { words.emplace_back(word); });
        throw usage(name + " takes one of: " + option.words + ", not " + inQuotes(value) +
                    didYouMean(value, words));
    }
}

/// Takes the option that begins at words[index]; `index` stays at its last word.
void takeOption(const std::vector<std::string>& words, std::size_t& index, Invocation& call)
{
    const std::string& word = words[index];
    const bool isLong = word.starts_with("--");
    const std::size_t end = isLong ? std::min(word.find('='), word.size()) : 2;
    const std::string name = word.substr(isLong ? 2 : 1, end - (isLong ? 2 : 1));
    const Option* const option = isLong == (name.size() > 1) ? findOption(name) : nullptr;
    if (option == nullptr)
        throw usage("unknown option " + inQuotes(word.substr(0, end)) +
                    (isLong ? didYouMean(name, names(options())) : ""));
    std::string value = word.substr(std::min(isLong ? end + 1 : end, word.size()));
    const bool isAttached = end < word.size();
    if (option->value == nullptr) {
        if (isAttached)
            throw usage(std::string("--") + option->name + " takes no value");
    } else {
        if (!isAttached) {
            if (++index == words.size())
                throw usage(std::string("--") + option->name + " wants its " + option->value);
            value = words[index];
        }
        checkValue(*option, value);
    }
    call.options[option->name] = value;
}

void checkVerb(const Invocation& call)
{
    const Verb& verb = *call.verb;
    for (const auto& [name, value] : call.options)
        if (!holdsWord(verb.options, name) && !holdsWord(kCommonOptions, name))
            throw usage(std::string(verb.name) + " has no option --" + name, &verb);
    std::size_t least = 0;
    std::size_t most = 0;
    bool isOpen = false;
    const std::string_view words = argumentsOf(verb, call.has("table"));
    forEachWord(words, [&](std::string_view word) {
        ++most;
        least += word.starts_with('[') ? 0 : 1;
        isOpen = isOpen || word.find("…") != std::string_view::npos;
    });
    if (call.arguments.size() < least)
        throw usage(std::string(verb.name) + " wants its " +
                        argumentWord(words, call.arguments.size()),
                    &verb);
    for (std::size_t i = 0; i < call.arguments.size(); ++i)
        if (argumentWord(words, i) == "FILE" && call.arguments[i].empty())
            throw usage(std::string(verb.name) + " wants its FILE, and that is empty", &verb);
    if (call.arguments.size() > most && !isOpen)
        throw usage(std::string(verb.name) + " takes no " + inQuotes(call.arguments[most]), &verb);
}

std::string optionHead(const Option& option)
{
    std::string head = option.letter == 0 ? "    " : std::string{'-', option.letter, ',', ' '};
    head += std::string("--") + option.name;
    return option.value == nullptr ? head : head + ' ' + option.value;
}

std::string helpLine(const std::string& head, const std::string& help)
{
    const std::size_t columns = columnsOf(head);
    const bool fits = columns < kHelpColumns;
    return "  " + head + (fits ? "" : "\n  ") +
           std::string(kHelpColumns - (fits ? columns : 0), ' ') + help + '\n';
}

std::string optionLines(std::string_view chosen)
{
    std::string lines;
    for (const Option& option : options())
        if (holdsWord(chosen, option.name))
            lines += helpLine(optionHead(option), option.help);
    return lines;
}

} // namespace

std::string Invocation::get(std::string_view option, const std::string& otherwise) const
{
    const auto found = options.find(option);
    return found == options.end() ? otherwise : found->second;
}

int Invocation::number(std::string_view option, int otherwise) const
{
    return has(option) ? std::stoi(get(option)) : otherwise; // checked when it was parsed
}

std::string Invocation::argument(std::size_t index) const
{
    return index < arguments.size() ? arguments[index] : "";
}

std::string Invocation::asked() const
{
    std::string text = verb == nullptr ? "" : verb->name;
    for (const std::string& argument : arguments)
        text += argument.empty() ? " ''" : ' ' + argument;
    return cutToColumns(printableText(text), kShownColumns);
}

std::string Invocation::typed() const
{
    std::string text = verb->name;
    const auto isLikeAnOption = [](const std::string& word) { return word.starts_with('-'); };
    if (std::ranges::any_of(arguments, isLikeAnOption))
        text += " --";
    for (const std::string& argument : arguments)
        text += ' ' + shellQuoted(argument);
    for (const auto& [name, value] : options)
        text.insert(0, "--" + name +
                           (findOption(name)->value == nullptr ? "" : '=' + shellQuoted(value)) +
                           ' ');
    return text;
}

Invocation parseCommandLine(const std::vector<std::string>& words)
{
    Invocation call;
    std::vector<std::string> plain;
    bool mayBeOption = true;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (!mayBeOption || words[i].size() < 2 || words[i][0] != '-')
            plain.push_back(words[i]);
        else if (words[i] == "--")
            mayBeOption = false;
        else
            takeOption(words, i, call);
    }
    if (call.has("version") || call.has("help") || plain.empty()) {
        if (plain.empty() && !call.has("version") && !call.has("help"))
            throw usage("say what to do");
        plain.insert(plain.begin(), call.has("version") ? "version" : "help");
        plain.resize(call.has("version") ? 1 : std::min<std::size_t>(plain.size(), 2));
        std::erase_if(call.options, [](const auto& option) { return option.first != "json"; });
    }
    call.verb = findVerb(plain[0]);
    if (call.verb == nullptr)
        throw usage("unknown verb " + inQuotes(plain[0]) + didYouMean(plain[0], names(verbs())));
    call.arguments.assign(plain.begin() + 1, plain.end());
    checkVerb(call);
    return call;
}

bool wantsJson(const std::vector<std::string>& words)
{
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, "--json") != end;
}

std::string usageLine(const Verb& verb, bool isTable)
{
    const std::string arguments(argumentsOf(verb, isTable));
    return std::string("cfgctl ") + verb.name + (isTable ? " --table" : "") +
           (arguments.empty() ? "" : " " + arguments);
}

std::string helpText()
{
    std::string text = "Asks the configuration manager of this device.\n\nUsage: ";
    text += std::string(kSynopsis) + '\n';
    std::string_view group;
    for (const Verb& verb : verbs()) {
        if (group != verb.group)
            text += std::string("\n") + verb.group + ":\n";
        group = verb.group;
        text += helpLine(usageLine(verb).substr(7), verb.help);
    }
    text += "\nOptions of every verb, before or behind it:\n" + optionLines(kCommonOptions);
    text += "\nExit status:\n";
    for (int i = 0; const char* meaning : kExitTexts)
        text += "  " + std::to_string(i++) + "  " + meaning + '\n';
    return text +
           "\n\"--\" ends the options: cfgctl show -- -night. More of a verb: cfgctl help VERB\n";
}

std::string helpText(const Verb& verb)
{
    std::string text = std::string(verb.help) + ".\n\nUsage: " + usageLine(verb) + " [OPTIONS]\n";
    if (verb.tableArguments != nullptr)
        text += "       " + usageLine(verb, true) + " [OPTIONS]\n";
    if (verb.effect == Effect::OVERWRITES || verb.effect == Effect::DELETES)
        text += std::string("\nIt ") +
                (verb.effect == Effect::DELETES ? "deletes" : "overwrites what has the name") +
                ": asks before on a terminal, wants --yes elsewhere.\n";
    if (verb.limit != 0)
        text += "\nIt waits for " + std::string(verb.waitsFor) + ", " + std::to_string(verb.limit) +
                " s in all; -t sets another limit.\n";
    if (const std::string own = optionLines(verb.options); !own.empty())
        text += "\nOptions:\n" + own;
    text += "\nExamples:\n";
    for (std::string_view rest = verb.examples; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        text += "  " + std::string(rest.substr(0, end)) + '\n';
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return text;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates)
{
    constexpr std::size_t kFar = 3;
    std::size_t best = std::min(kFar, word.size());
    std::string nearest;
    for (const std::string& candidate : candidates) {
        // The beginning of a word is near, too.
        const bool begins = word.size() > 1 && candidate.starts_with(word);
        const std::size_t far = begins ? 1 : distance(word.substr(0, 2 * kShownColumns), candidate);
        if (far < best) {
            best = far;
            nearest = candidate;
        }
    }
    return nearest.empty() ? "" : ", did you mean '" + nearest + "'?";
}

const Verb* namedVerb(const std::vector<std::string>& words)
{
    const auto end = std::find(words.begin(), words.end(), "--");
    const auto name = std::find_if(
        words.begin(), end, [](const std::string& word) { return findVerb(word) != nullptr; });
    return name == end ? nullptr : findVerb(*name);
}

std::string argumentWord(std::string_view arguments, std::size_t index)
{
    std::string found;
    std::size_t position = 0;
    forEachWord(arguments, [&](std::string_view word) {
        const bool isOpen = word.find("…") != std::string_view::npos;
        if (position == index || (isOpen && index > position)) {
            found = word;
            std::erase_if(found, [](char c) { return c == '[' || c == ']'; });
            if (isOpen)
                found.erase(found.find("…"));
        }
        ++position;
    });
    return found;
}

std::string inQuotes(std::string_view text)
{
    return '\'' + cutToColumns(printableText(text), kShownColumns) + '\'';
}

std::string shellQuoted(const std::string& word)
{
    constexpr char kDigits[] = "0123456789abcdef";
    const bool hasControls = printableText(word) != word;
    const auto isControl = [hasControls](unsigned char c) {
        return hasControls && (c < ' ' || c >= 0x7f);
    };
    std::string out = word.empty() ? "''" : hasControls ? "$'" : "";
    for (const char c : word) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = std::isalnum(byte) != 0 || byte >= 0x80 ||
                             std::string_view("-_./:,+%@").find(c) != std::string_view::npos;
        if (isControl(byte)) {
            out += {'\\', 'x', kDigits[byte / 16], kDigits[byte % 16]};
            continue;
        }
        if (hasControls ? c == '\'' || c == '\\' : !isPlain)
            out += '\\';
        out += c;
    }
    return hasControls ? out + '\'' : out;
}

std::string quotedArgument(const std::string& word)
{
    return (word.starts_with('-') ? "-- " : "") + shellQuoted(word);
}
