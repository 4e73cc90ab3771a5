#include "Session.h"
#include "Verb.h"

#include <algorithm>

namespace
{

// Limits in seconds: as long as the manager's own work may take, its wait for the channel manager
// included, and a little more; not what it serves before.
constexpr int kUsual = 10;
constexpr int kSave = 40;
constexpr int kStart = 130;
constexpr int kMove = 60;     // a file may come from another disk
constexpr int kRestore = 600; // many moves
constexpr int kLook = 3;

constexpr char kManager[] = "CfgManager";
constexpr char kChannels[] = "the channel manager";

constexpr long kLongest = 1000000;

constexpr Option kOptions[] = {
    {"description", 'd', "TEXT", "What it is, in free text"},
    {"autostart", 0, nullptr, "Start it at every boot from now on"},
    {"off", 0, nullptr, "None: the channel manager's default channels"},
    {"move", 0, nullptr, "Take the file itself away instead of a copy"},
    {"count", 0, "N", "End after so many", 1, kLongest},
    {"for", 0, "SECONDS", "End after so long", 1, kLongest},
    {"severity", 0, "WORD", "This and worse: info, warning, error, fatal, system", 0, 0,
     "info warning error fatal system"},
    {"task", 0, "TASK", "Lines of this task only, such as tCfg"},
    {"confirm-within", 0, "SECONDS", "Go back to what ran before, unless you confirm in time", 1,
     kLongest},
    {"table", 0, nullptr, "A table of the older model"},
    {"timeout", 't', "SECONDS", "The one limit for all that the verb waits for", 1, kLongest},
    {"json", 0, nullptr, "One JSON document instead of text; an object a line for what goes on"},
    {"dry-run", 0, nullptr, "Print the datagram, send nothing"},
    {"yes", 'y', nullptr, "Overwrite or delete without asking"},
    {"socket", 0, "PATH", "Ask the daemon that serves this socket"},
    {"verbose", 'v', "LEVEL", "Log to the debug FIFO: this severity and worse", 0, 5},
    {"help", 'h', nullptr, "This help; with a verb, its own"},
    {"version", 0, nullptr, "The client's version"},
};

constexpr Verb kVerbs[] = {
    {"Look", "list", "", "List the configurations", "", "cfgctl list\ncfgctl list --json",
     Effect::READS, kUsual, kManager, runList},
    {"Look", "show", "NAME", "Show all of one configuration", "", "cfgctl show evening",
     Effect::READS, kUsual, kManager, runShow},
    {"Look", "status", "", "Does it answer, what runs, what is amiss", "", "cfgctl status",
     Effect::READS, kLook, kManager, runStatus},
    {"Look", "wait", "NAME[=STATE]", "Wait until a configuration is there, or in a state", "",
     "cfgctl wait evening\ncfgctl -t 300 wait evening=Available\n"
     "cfgctl wait day=night=    # there in any state, of a name with '='",
     Effect::READS, kMove, kManager, runWait},
    {"Look", "watch", "", "Print events as they come", "count for",
     "cfgctl watch\ncfgctl watch --for 60 --json\ncfgctl watch --socket /tmp/sockDev",
     Effect::READS, kUsual, kManager, runWatch, true},
    {"Look", "log", "[FILE]", "Print the last 100 entries of the collector's file, then what comes",
     "severity task for",
     "cfgctl log --severity error\ncfgctl log /tmp/device.log --task tCfgCom --for 10",
     Effect::READS, 0, "lines", runLog, true},
    {"Look", "validate", "FILE", "Check a dataset file, such as a catalogue", "",
     "cfgctl validate /etc/sysmgt/cfg_data_set.json", Effect::READS, 0, "", runValidate},
    {"Look", "doctor", "",
     "Look for faults, say what to do; exit status 5 with faults, 3 without an answer", "",
     "cfgctl doctor", Effect::READS, kUsual, kManager, runDoctor},
    {"Look", "export", "FILE", "Put all configurations into an archive", "",
     "cfgctl export /media/stick/device.tar", Effect::READS, kMove, kManager, runExport},

    {"Change", "save", "NAME", "Save the channels as they are", "description autostart",
     "cfgctl save evening -d \"Reduced power\" --autostart", Effect::OVERWRITES, kSave, kChannels,
     runSave},
    {"Change", "start", "NAME", "Load the channels of a configuration", "confirm-within",
     "cfgctl start evening\ncfgctl start evening --confirm-within 60", Effect::CHANGES, kStart,
     kChannels, runStart},
    {"Change", "confirm", "", "Keep what was started with --confirm-within", "", "cfgctl confirm",
     Effect::CHANGES, 0, "", runConfirm},
    {"Change", "autostart", "[NAME]", "Choose what is started at boot", "off",
     "cfgctl autostart evening\ncfgctl autostart --off", Effect::CHANGES, kUsual, kManager,
     runAutoStart},
    {"Change", "import", "FILE", "Take a file into the catalogue, under its own name",
     "description autostart move", "cfgctl import /media/stick/evening -d \"From the lab\"",
     Effect::OVERWRITES, kMove, kManager, runImport},
    {"Change", "restore", "FILE", "Take all configurations of an archive into the catalogue", "",
     "cfgctl restore /media/stick/device.tar", Effect::OVERWRITES, kRestore, kManager, runRestore},
    {"Change", "rename", "NAME NEW-NAME", "Give a configuration another name", "description",
     "cfgctl rename evening night", Effect::OVERWRITES, kMove, kManager, runRename},
    {"Change", "remove", "NAME", "Delete a configuration, with its file", "",
     "cfgctl remove evening", Effect::DELETES, kUsual, kManager, runRemove},
    {"Change", "debug", "on|off", "Let a daemon log everything, or nothing", "",
     "cfgctl debug on\ncfgctl debug off --socket /tmp/sockDev", Effect::CHANGES, kUsual, kManager,
     runDebug},

    {"Any daemon of the suite (--socket)", "get", "DATASET COMPONENT [KEY [PROPERTY]]",
     "Print values", "table",
     "cfgctl get CfgDataSet AutoStart\ncfgctl get CfgDataSet ConfigurationsTable evening State\n"
     "cfgctl get --socket /tmp/sockDev --table SensorTable 1 Limit",
     Effect::READS, kUsual, kManager, runGet, false, "TABLE [ROW [ITEM]]"},
    {"Any daemon of the suite (--socket)", "set", "DATASET COMPONENT KEY PROPERTY VALUE",
     "Write a value, pending until the daemon commits", "table",
     "cfgctl set --socket /tmp/sockFan FanDataSet Fans left Speed 1200\n"
     "cfgctl set --socket /tmp/sockDev --table SensorTable 1 Limit 70",
     Effect::CHANGES, kUsual, kManager, runSet, false, "TABLE ROW ITEM VALUE"},
    {"Any daemon of the suite (--socket)", "call", "COMMAND [NAME=VALUE…]",
     "Send a command; most daemons answer OK to one that they do not know", "",
     "cfgctl call START_CFG RowID=evening", Effect::CHANGES, kStart, kManager, runCall},

    {"Help", "help", "[VERB]", "This help, or a verb's own", "", "cfgctl help save", Effect::READS,
     0, "", runHelp},
    {"Help", "version", "", "The client's version", "", "cfgctl version", Effect::READS, 0, "",
     runVersion},
    {"Help", "completion", "[SHELL]", "Print the completion for bash", "",
     "cfgctl completion bash >/etc/bash_completion.d/cfgctl", Effect::READS, 0, "", runCompletion},
};

} // namespace

std::span<const Verb> verbs() { return kVerbs; }

std::span<const Option> options() { return kOptions; }

const Verb* findVerb(std::string_view name)
{
    const auto found = std::ranges::find(kVerbs, name, &Verb::name);
    return found == std::end(kVerbs) ? nullptr : found;
}

const Option* findOption(std::string_view nameOrLetter)
{
    const auto found = std::ranges::find_if(kOptions, [&](const Option& option) {
        return nameOrLetter == option.name ||
               (option.letter != 0 && nameOrLetter == std::string_view(&option.letter, 1));
    });
    return found == std::end(kOptions) ? nullptr : found;
}

bool holdsWord(std::string_view words, std::string_view word)
{
    bool holds = false;
    forEachWord(words, [&](std::string_view each) { holds = holds || each == word; });
    return holds;
}
