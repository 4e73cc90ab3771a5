// The command-line client of the configuration manager. Exit status: 0 done, 1 refused by the
// manager, 2 used wrongly, 3 no answer.

#include "Commands.h"
#include "DbgPrintClient.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace
{

constexpr int kNoLogging = 5;
constexpr char kNoDescription[] = " ";

struct Arguments {
    int level = kNoLogging;
    std::optional<int> timeout;
    std::string name;
    std::string newName;
    std::string description;
    bool autoStart = false;
    bool off = false;
    std::string onOrOff;
    int count = 0;
    int watchTime = 0;

    std::string descriptionOrNone() const
    {
        return description.empty() ? kNoDescription : description;
    }
    std::optional<std::string> newDescription() const
    {
        return description.empty() ? std::nullopt : std::optional(description);
    }
};

using Action = std::function<ExitStatus(Commands&)>;

/// The command line: fills `a` and chooses the action.
class CommandLine
{
public:
    CommandLine(Arguments& a, Action& action) : mArguments(a), mAction(action)
    {
        mApp.require_subcommand(1);
        mApp.add_option("-t,--timeout", a.timeout,
                        "Seconds to wait for an answer, instead of what the command may take")
            ->check(CLI::PositiveNumber);
        mApp.add_option("-v", a.level, "Log to the debug FIFO: this severity and worse");
        addReading();
        addWriting();
        addMonitoring();
    }

    /// The exit status, or nothing when the action is to be carried out.
    std::optional<int> parse(int argc, char** argv)
    {
        try {
            mApp.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return mApp.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
        }
        return std::nullopt;
    }

private:
    CLI::App& add(const char* name, const char* help, const Action& action)
    {
        CLI::App* command = mApp.add_subcommand(name, help);
        command->callback([this, action] { mAction = action; });
        return *command;
    }

    void addName(CLI::App& command)
    {
        command.add_option("NAME", mArguments.name, "Name of the configuration")->required();
    }

    void addDescription(CLI::App& command)
    {
        command.add_option("-d,--description", mArguments.description, "What it is, in free text");
    }

    void addAutoStart(CLI::App& command)
    {
        command.add_flag("--autostart", mArguments.autoStart, "Start it at every boot from now on");
    }

    void addReading()
    {
        add("list", "List the configurations", [](Commands& commands) { return commands.list(); });

        const Arguments& a = mArguments;
        addName(add("show", "Show all of one configuration",
                    [&a](Commands& commands) { return commands.show(a.name); }));
    }

    void addWriting()
    {
        const Arguments& a = mArguments;
        CLI::App& save = add("save", "Save the channels as they are", [&a](Commands& commands) {
            return commands.save(a.name, a.descriptionOrNone(), a.autoStart);
        });
        addName(save);
        addDescription(save);
        addAutoStart(save);

        addName(add("start", "Load the channels of a configuration",
                    [&a](Commands& commands) { return commands.start(a.name); }));

        CLI::App& autoStart = add("autostart", "Choose what is started at boot",
                                  [&a](Commands& commands) { return commands.autoStart(a.name); });
        CLI::Option_group& choice = *autoStart.add_option_group("choice");
        choice.add_option("NAME", mArguments.name, "Name of the configuration");
        choice.add_flag("--off", mArguments.off, "None: the default channels");
        choice.require_option(1);

        CLI::App& import =
            add("import", "Move a file into the catalogue", [&a](Commands& commands) {
                return commands.importFile(a.name, a.descriptionOrNone(), a.autoStart);
            });
        import
            .add_option("FILE", mArguments.name, "The file; its name becomes the configuration's")
            ->required();
        addDescription(import);
        addAutoStart(import);

        CLI::App& rename =
            add("rename", "Give a configuration another name", [&a](Commands& commands) {
                return commands.rename(a.name, a.newName, a.newDescription());
            });
        rename.add_option("OLD", mArguments.name, "Its name")->required();
        rename.add_option("NEW", mArguments.newName, "Its new name; one that has it is replaced")
            ->required();
        addDescription(rename);

        addName(add("remove", "Delete a configuration, with its file",
                    [&a](Commands& commands) { return commands.remove(a.name); }));
    }

    void addMonitoring()
    {
        const Arguments& a = mArguments;
        CLI::App& watch =
            add("watch", "Print the manager's events as they come",
                [&a](Commands& commands) { return commands.watch(a.count, a.watchTime); });
        watch.add_option("--count", mArguments.count, "End after so many events")
            ->check(CLI::PositiveNumber);
        watch.add_option("--timeout", mArguments.watchTime, "End after so many seconds")
            ->check(CLI::PositiveNumber);

        add("debug", "Let the manager log everything, or nothing",
            [&a](Commands& commands) { return commands.setDebugLogging(a.onOrOff == "on"); })
            .add_option("on|off", mArguments.onOrOff, "on or off")
            ->required()
            ->check(CLI::IsMember({"on", "off"}));
    }

    CLI::App mApp{"Asks the configuration manager of this device.", "cfgctl"};
    Arguments& mArguments;
    Action& mAction;
};

} // namespace

int main(int argc, char** argv)
{
    Arguments arguments;
    Action action;
    CommandLine commandLine(arguments, action);
    if (const auto status = commandLine.parse(argc, argv))
        return *status;

    gDbgLevel = arguments.level;
    try {
        Commands commands(arguments.timeout);
        return action(commands);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cfgctl: %s\n", error.what());
        return EXIT_USAGE;
    }
}
