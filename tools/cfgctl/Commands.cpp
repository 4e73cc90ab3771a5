#include "Commands.h"

#include "CfgPaths.h"
#include "DbgLine.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include "MessageText.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <utility>

namespace
{

// In seconds: as long as the manager's own work on the command may take, its wait for the channel
// manager included, and a little more; not what it serves before.
constexpr int kSaveTimeout = 40;
constexpr int kStartTimeout = 130;
constexpr int kMoveTimeout = 60; // a file may come from another disk
constexpr int kTimeout = 10;

// Columns of the lists, in characters.
constexpr std::size_t kMinNameWidth = 4;
constexpr std::size_t kStateWidth = 11;
constexpr std::size_t kTimeWidth = 19;
constexpr std::size_t kEventWidth = 23;
constexpr std::size_t kSourceWidth = 16;
constexpr std::size_t kLabelWidth = 13;

/// "OK", or "No Such Name (0x10008)".
std::string formatCode(Fcodes code)
{
    std::ostringstream text;
    text << fcodeText(code);
    if (code != FC_OK)
        text << " (0x" << Hex{code} << ')';
    return text.str();
}

/// Replaces control characters: a configuration's texts may hold any, and must not reach the
/// terminal as commands.
std::string printable(std::string text)
{
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f)
            c = '?';
    return text;
}

/// The columns that a text takes: letters beyond ASCII have several bytes, but one column.
std::size_t columnsOf(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string padded(const std::string& text, std::size_t columns)
{
    const std::size_t used = columnsOf(text);
    return text + std::string(columns > used ? columns - used : 0, ' ');
}

MessageCommand makeCommand(const char* id,
                           std::initializer_list<std::pair<const char*, std::string>> parameters)
{
    MessageCommand command;
    command.setId(id);
    for (const auto& [name, value] : parameters)
        command.addParam(name, value);
    return command;
}

const char* trueOrFalse(bool value) { return value ? "true" : "false"; }

/// Identifies the socket file that the manager has bound: it makes a new one at each start.
ino_t socketInode()
{
    struct stat status;
    return stat(kCfgSocket, &status) == 0 ? status.st_ino : 0;
}

void print(const MessageEvent& event)
{
    std::string line = event.Time + "  " + padded(event.ID, kEventWidth) + "  " +
                       padded(event.Source, kSourceWidth) + "  " + formatCode(event.Fcode);
    for (auto param = event.getParamsBegin(); param != event.getParamsEnd(); ++param)
        line += "  " + param->first + '=' + param->second;
    std::puts(printable(line).c_str());
    std::fflush(stdout);
}

} // namespace

ExitStatus Commands::list()
{
    Catalogue catalogue(mClient, timeout(kTimeout));
    std::vector<Configuration> rows;
    std::string autoStart;
    Answer answer = catalogue.readAll({"State", "Time", "Description"}, rows);
    if (answer.ok())
        answer = catalogue.readAutoStart(autoStart);
    if (!answer.ok())
        return report("list", answer, timeout(kTimeout));
    if (rows.empty()) {
        std::puts("no configurations");
        return EXIT_DONE;
    }

    std::size_t nameWidth = kMinNameWidth;
    for (const Configuration& row : rows)
        nameWidth = std::max(nameWidth, columnsOf(row.name));
    std::printf("  %s  %s  %s  DESCRIPTION\n", padded("NAME", nameWidth).c_str(),
                padded("STATE", kStateWidth).c_str(), padded("TIME", kTimeWidth).c_str());
    for (const Configuration& row : rows) {
        std::string line = (row.name == autoStart ? "* " : "  ") + padded(row.name, nameWidth) +
                           "  " + padded(row.text("State"), kStateWidth) + "  " +
                           padded(row.text("Time"), kTimeWidth) + "  " + row.text("Description");
        line.erase(line.find_last_not_of(' ') + 1);
        std::puts(printable(line).c_str());
    }
    if (!autoStart.empty())
        std::puts("* starts at boot");
    return EXIT_DONE;
}

ExitStatus Commands::show(const std::string& name)
{
    Catalogue catalogue(mClient, timeout(kTimeout));
    Configuration row;
    std::string autoStart;
    Answer answer = catalogue.read(name, row);
    if (answer.ok())
        answer = catalogue.readAutoStart(autoStart);
    if (!answer.ok())
        return report("show " + name, answer, timeout(kTimeout));

    const auto code = static_cast<Fcodes>(textToInt(row.text("Fcode")));
    const std::pair<const char*, std::string> lines[] = {
        {"Name", row.text("Name")},
        {"Description", row.text("Description")},
        {"File", row.text("File Name")},
        {"Time", row.text("Time")},
        {"State", row.text("State")},
        {"Last result", formatCode(code)},
        {"At boot", row.name == autoStart ? "started" : "not started"},
    };
    for (const auto& [label, value] : lines)
        std::puts((padded(std::string(label) + ':', kLabelWidth) + printable(value)).c_str());
    return EXIT_DONE;
}

ExitStatus Commands::save(const std::string& name, const std::string& description, bool autoStart)
{
    return send("save " + name,
                makeCommand("SAVE_CFG", {{"Name", name},
                                         {"Description", description},
                                         {"AutoStart", trueOrFalse(autoStart)}}),
                kSaveTimeout);
}

ExitStatus Commands::start(const std::string& name)
{
    return send("start " + name, makeCommand("START_CFG", {{"RowID", name}}), kStartTimeout);
}

ExitStatus Commands::autoStart(const std::string& name)
{
    if (name.empty())
        return send("autostart --off",
                    makeCommand("SET_AUTOSTART_CFG", {{"RowID", "none"}, {"AutoStart", "false"}}),
                    kTimeout);

    // The manager takes any name, and would find nothing to start at the next boot.
    Configuration row;
    const Answer known = Catalogue(mClient, timeout(kTimeout)).read(name, row);
    if (!known.ok())
        return report("autostart " + name, known, timeout(kTimeout));
    return send("autostart " + name,
                makeCommand("SET_AUTOSTART_CFG", {{"RowID", name}, {"AutoStart", "true"}}),
                kTimeout);
}

ExitStatus Commands::importFile(const std::string& file, const std::string& description,
                                bool autoStart)
{
    const std::filesystem::path path = std::filesystem::absolute(file); // the manager runs in "/"
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        std::fprintf(stderr, "cfgctl: import %s: there is no such file\n", file.c_str());
        return EXIT_REFUSED;
    }
    return send("import " + file,
                makeCommand("Import Configuration", {{"File", path.string()},
                                                     {"Description", description},
                                                     {"AutoStart", trueOrFalse(autoStart)}}),
                kMoveTimeout);
}

ExitStatus Commands::rename(const std::string& oldName, const std::string& newName,
                            const std::optional<std::string>& description)
{
    MessageCommand command =
        makeCommand("Rename Configuration", {{"Name", oldName}, {"New Name", newName}});
    if (description)
        command.addParam("Description", *description);
    return send("rename " + oldName, command, kMoveTimeout);
}

ExitStatus Commands::remove(const std::string& name)
{
    return send("remove " + name, makeCommand("REMOVE_CFG", {{"RowID", name}}), kTimeout);
}

ExitStatus Commands::setDebugLogging(bool on)
{
    return send(on ? "debug on" : "debug off",
                makeCommand(on ? kCommandStartDbgPrint : kCommandStopDbgPrint, {}), kTimeout);
}

ExitStatus Commands::watch(int count, int seconds)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(seconds);

    ino_t watchedInode = socketInode();
    if (const Answer answer = mClient.subscribe(timeout(kTimeout)); !answer.ok())
        return report("watch", answer, timeout(kTimeout));
    std::fputs("cfgctl: watching, until it is interrupted\n", stderr);

    int seen = 0;
    MessageEvent event;
    while ((count == 0 || seen < count) && (seconds == 0 || Clock::now() < end)) {
        if (mClient.nextEvent(event, 1)) {
            print(event);
            ++seen;
        } else if (isServed(kCfgSocket) && socketInode() != watchedInode) {
            // A manager that has started anew knows no subscribers.
            watchedInode = socketInode();
            if (mClient.subscribe(timeout(kTimeout)).ok())
                std::fputs("cfgctl: CfgManager has started anew, still watching\n", stderr);
        }
    }
    if (seen < count) {
        std::fprintf(stderr, "cfgctl: watch: %d of %d events in %d s\n", seen, count, seconds);
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}

ExitStatus Commands::send(const std::string& what, const MessageCommand& command, int usualTimeout)
{
    const int seconds = timeout(usualTimeout);
    const Answer answer = mClient.sendCommand(command, seconds);
    if (!answer.ok())
        return report(what, answer, seconds);
    std::printf("%s: OK\n", what.c_str());
    return EXIT_DONE;
}

ExitStatus Commands::report(const std::string& what, const Answer& answer, int timeout) const
{
    if (answer.received) {
        std::fprintf(stderr, "cfgctl: %s: %s\n", printable(what).c_str(),
                     formatCode(answer.code).c_str());
        return EXIT_REFUSED;
    }
    if (isServed(kCfgSocket))
        std::fprintf(stderr, "cfgctl: no answer from CfgManager on %s in %d s: it may be busy\n",
                     kCfgSocket, timeout);
    else
        std::fprintf(stderr, "cfgctl: no answer from CfgManager on %s: is it running?\n",
                     kCfgSocket);
    return EXIT_NO_ANSWER;
}
