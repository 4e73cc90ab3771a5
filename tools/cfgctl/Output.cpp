#include "Output.h"

#include "terminal/TerminalText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <json/writer.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

constexpr int kSchema = 1; // docs/cfgctl-json.md
constexpr std::size_t kWidestInTerminal = 40;
constexpr char kPlain[] = "\033[0m";
constexpr char kRed[] = "\033[31m";
constexpr char kYellow[] = "\033[33m";

/// What a word says at a glance.
constexpr std::pair<const char*, const char*> kColours[] = {
    {"Inprogress", kYellow}, {"Unavailable", kRed}, {"error", kRed},
    {"fatal", kRed},         {"warning", kYellow},
};

std::size_t columnsOfTerminal()
{
    if (isatty(STDOUT_FILENO) != 1)
        return 0;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

bool mayColour(int descriptor)
{
    const char* const unwanted = std::getenv("NO_COLOR");
    return isatty(descriptor) == 1 && (unwanted == nullptr || *unwanted == '\0');
}

std::string padded(const std::string& text, std::size_t columns)
{
    const std::size_t used = columnsOf(text);
    return text + std::string(columns > used ? columns - used : 0, ' ');
}

/// A blank behind a blank would look like the next column. Times have two, and are known.
std::string withSingleBlanks(const std::string& text, bool isTime)
{
    std::string out;
    for (const char c : text) {
        if (c != ' ' || !(out.empty() || out.back() == ' '))
            out += c;
        else if (!isTime)
            out += "\\x20";
    }
    return out;
}

std::vector<std::string> cellsOf(std::span<const Column> columns, const Json::Value& row)
{
    std::vector<std::string> cells;
    for (const Column& column : columns) {
        const std::string text = cellText(row[column.key]);
        const bool isLast = &column == &columns.back(); // nothing follows: it may hold any blanks
        cells.push_back(isLast ? text
                               : withSingleBlanks(text, std::string_view(column.key) == "time"));
    }
    return cells;
}

/// The first of the words that stands alone, in its colour.
std::string coloured(std::string line)
{
    for (const auto& [word, colour] : kColours) {
        const std::size_t at = line.find(std::string("  ") + word);
        const std::size_t end = at + 2 + std::strlen(word);
        if (at != std::string::npos && (end == line.size() || line[end] == ' ')) {
            line.insert(end, kPlain);
            return line.insert(at + 2, colour);
        }
    }
    return line;
}

void forEachLine(std::string_view text, const auto& call)
{
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        call(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::string hexBytes(const std::string& text)
{
    std::string hex;
    std::array<char, 3> digits;
    for (const char c : text) {
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned char>(c));
        hex += digits.data();
    }
    return hex;
}

/// JSON is UTF-8: a text that is not gets its bytes beside it.
Json::Value asUtf8(const Json::Value& value)
{
    if (value.isString())
        return toUtf8(value.asString());
    if (value.isArray()) {
        Json::Value array(Json::arrayValue);
        for (const Json::Value& element : value)
            array.append(asUtf8(element));
        return array;
    }
    if (!value.isObject())
        return value;
    Json::Value object(Json::objectValue);
    for (auto member = value.begin(); member != value.end(); ++member) {
        const std::string name = toUtf8(member.name());
        object[name] = asUtf8(*member);
        if (object[name] == *member)
            continue;
        if (member->isString())
            object[name + "Bytes"] = hexBytes(member->asString());
        else if (member->isArray() && (*member)[0].isString())
            for (const Json::Value& element : *member)
                object[name + "Bytes"].append(hexBytes(element.asString()));
    }
    return object;
}

std::string jsonText(const Json::Value& value, const char* indentation)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation; // emitUTF8 is off: a terminal may get it
    std::string text = Json::writeString(builder, asUtf8(value));
    for (std::size_t at = 0; (at = text.find('\x7f', at)) != std::string::npos;)
        text.replace(at, 1, "\\u007f");
    return text + '\n';
}

Failure cannotWrite()
{
    return {EXIT_INTERNAL, std::string("cannot write the output: ") + std::strerror(errno),
            "df -h"};
}

} // namespace

std::string cellText(const Json::Value& value)
{
    if (value.isNull())
        return "unknown";
    if (value.isBool())
        return value.asBool() ? "yes" : "no";
    if (value.isArray() || value.isObject()) { // name=value, name=value
        const char* const separator = value.isArray() ? ", " : "=";
        std::string all;
        for (const Json::Value& element : value)
            all += (&element == &*value.begin() ? "" : separator) + cellText(element);
        return all.empty() ? "-" : all;
    }
    const std::string text = printableText(value.asString());
    return text.find_first_not_of(' ') == std::string::npos ? "-" : text;
}

std::string printableLines(std::string_view text)
{
    std::string all;
    forEachLine(text, [&](std::string_view line) { all += printableText(line, true) + '\n'; });
    return all;
}

Output::Output(bool isJson, const Verb* verb)
    : mIsJson(isJson), mIsStream(verb != nullptr && verb->isStream),
      mVerb(verb == nullptr ? "" : verb->name), mColumns(columnsOfTerminal()),
      mIsColoured(mayColour(STDOUT_FILENO))
{
}

void Output::table(const char* key, std::span<const Column> columns, const Json::Value& rows)
{
    if (mIsJson) {
        mDocument[key] = rows;
        return;
    }
    std::vector<std::vector<std::string>> cells(1);
    for (const Column& column : columns)
        cells[0].emplace_back(column.title);
    for (const Json::Value& row : rows)
        cells.push_back(cellsOf(columns, row));
    std::vector<std::size_t> widths(columns.size());
    for (const auto& row : cells)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], columnsOf(row[i]));
    std::string all;
    for (const auto& row : cells) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const bool isLast = i + 1 == row.size();
            const std::size_t width =
                mColumns != 0 ? std::min(widths[i], kWidestInTerminal) : widths[i];
            std::string cell = mColumns != 0 && !isLast ? cutToColumns(row[i], width) : row[i];
            line += isLast ? cell : padded(cell, width) + "  ";
        }
        all += line + '\n';
    }
    writeLines(all);
}

void Output::record(std::span<const Column> columns, const Json::Value& object)
{
    for (auto member = object.begin(); member != object.end(); ++member)
        mDocument[member.name()] = *member;
    if (mIsJson)
        return;
    std::size_t width = 0;
    for (const Column& column : columns)
        width = std::max(width, columnsOf(column.title) + 2);
    std::string all;
    for (const Column& column : columns)
        all += padded(std::string(column.title) + ':', width) + cellText(object[column.key]) + '\n';
    writeLines(all);
}

void Output::line(std::span<const Column> columns, const Json::Value& object)
{
    if (mIsJson) {
        Json::Value line = object;
        line["schema"] = kSchema;
        line["verb"] = mVerb;
        write(jsonText(line, ""));
    } else {
        std::string line;
        const std::vector<std::string> cells = cellsOf(columns, object);
        for (std::size_t i = 0; i < cells.size(); ++i)
            line += padded(cells[i], columns[i].width) + "  ";
        line.erase(line.find_last_not_of(' ') + 1);
        writeLines(line + '\n');
    }
    if (std::fflush(stdout) != 0)
        throw cannotWrite();
}

void Output::text(const std::string& lines)
{
    if (mIsJson)
        return;
    write(lines);
    if (std::fflush(stdout) != 0)
        throw cannotWrite();
}

void Output::note(const std::string& words) const
{
    std::fprintf(stderr, "cfgctl: %s\n", printableText(words).c_str());
}

int Output::end()
{
    if (mIsJson && (!mIsStream || !mDocument.empty()))
        writeDocument(EXIT_DONE);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw cannotWrite();
    return EXIT_DONE;
}

int Output::fail(const Failure& failure, const std::string& asked)
{
    std::string message = failure.problem;
    if (!failure.cause.empty())
        message += ": " + failure.cause;
    if (mIsJson) {
        Json::Value& error = mDocument["error"];
        error["asked"] = asked;
        error["message"] = failure.problem;
        error["cause"] = failure.cause;
        error["next"] = failure.next;
        if (failure.code != FC_OK) {
            error["code"] = hexCode(failure.code);
            error["codeText"] = fcodeText(failure.code);
        }
        writeDocument(failure.exit);
        std::fflush(stdout);
    }
    if (!failure.next.empty())
        message += (message.ends_with('?') ? " Try: " : ". Try: ") + failure.next;
    std::fflush(stdout);
    const std::string words = printableText((asked.empty() ? "" : asked + ": ") + message);
    const bool isColoured = mayColour(STDERR_FILENO);
    std::fprintf(stderr, "%scfgctl:%s %s\n", isColoured ? kRed : "", isColoured ? kPlain : "",
                 words.c_str());
    return failure.exit;
}

void Output::writeLines(std::string_view lines)
{
    std::string all;
    forEachLine(lines, [&](std::string_view each) {
        std::string line = mColumns != 0 ? cutToColumns(each, mColumns) : std::string(each);
        all += (mIsColoured ? coloured(line) : line) + '\n';
    });
    write(all);
}

void Output::write(const std::string& bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size())
        throw cannotWrite();
}

void Output::writeDocument(int exit)
{
    mDocument["schema"] = kSchema;
    mDocument["verb"] = mVerb;
    mDocument["ok"] = exit == EXIT_DONE;
    mDocument["exitCode"] = exit;
    const std::string text = jsonText(mDocument, mIsStream ? "" : "  ");
    std::fwrite(text.data(), 1, text.size(), stdout);
}
