#include "Catalogue.h"
#include "Session.h"
#include "StagedFile.h"

#include <filesystem>

namespace
{

constexpr char kNoDescription[] = " ";

void sayDone(Session& session) { session.out.text(session.call.asked() + ": OK\n"); }

/// A configuration of that name is asked about before it is lost.
void confirmOverwriting(Session& session, const std::string& name)
{
    if (session.isDryRun() || session.call.has("yes"))
        return;
    if (Catalogue(session.peer()).findQuietly(name))
        session.confirm("A configuration " + inQuotes(name) +
                        " is there, and will be overwritten.");
}

/// "No Such Name" is the channel manager's answer too, where the configuration is there.
void blameFile(Session& session, Failure& failure)
{
    if (!holds(failure.code, FC_NO_SUCH_NAME) || session.deadline.isOver())
        return;
    std::optional<DataRow> row;
    try {
        row = Catalogue(session.peer()).findQuietly(session.call.argument(0));
    } catch (const Failure&) {
        return; // the first one counts
    }
    const std::string* const file = row ? row->find("File Name") : nullptr;
    if (file == nullptr)
        return;
    std::error_code error;
    const bool isGone = !std::filesystem::exists(*file, error) && !error;
    failure.cause = isGone ? "its file " + *file + " is gone"
                           : "the channel manager did not find or take what is in " + *file;
    failure.next = isGone ? "cfgctl doctor" : "cfgctl log --severity error";
}

std::string trueOrFalse(bool value) { return value ? "true" : "false"; }

} // namespace

void runSave(Session& session)
{
    const std::string name = session.call.argument(0);
    confirmOverwriting(session, name);
    session.carryOut("SAVE_CFG", {{"Name", name},
                                  {"Description", session.call.get("description", kNoDescription)},
                                  {"AutoStart", trueOrFalse(session.call.has("autostart"))}});
    sayDone(session);
}

void runStart(Session& session)
{
    try {
        if (session.call.has("confirm-within") && !session.isDryRun()) {
            runGuardedStart(session);
            return;
        }
        session.carryOut("START_CFG", {{"RowID", session.call.argument(0)}});
    } catch (Failure& failure) {
        blameFile(session, failure);
        throw;
    }
    sayDone(session);
}

void runAutoStart(Session& session)
{
    const bool isOff = session.call.has("off");
    const std::string name = session.call.argument(0);
    if (isOff == !session.call.arguments.empty())
        throw Failure(EXIT_USAGE, "autostart wants a NAME, or --off", "cfgctl help autostart");
    // The manager takes any name, and would find nothing to start at the next boot.
    if (!isOff && !session.isDryRun())
        Catalogue(session.peer()).read(name);
    session.carryOut("SET_AUTOSTART_CFG",
                     {{"RowID", isOff ? "none" : name}, {"AutoStart", trueOrFalse(!isOff)}});
    session.out.text(isOff ? "autostart --off: OK\n" : session.call.asked() + ": OK\n");
}

void runImport(Session& session)
{
    StagedFile file(session.call.argument(0), session.call.has("move"), session.isDryRun());
    requireValidText(file.path());
    confirmOverwriting(session, std::filesystem::path(file.path()).filename().string());
    try {
        session.carryOut("Import Configuration",
                         {{"File", file.path()},
                          {"Description", session.call.get("description", kNoDescription)},
                          {"AutoStart", trueOrFalse(session.call.has("autostart"))}});
    } catch (const Failure& failure) {
        if (failure.mayBeDone)
            file.leave();
        throw;
    }
    sayDone(session);
}

void runRename(Session& session)
{
    confirmOverwriting(session, session.call.argument(1));
    MessageCommand command;
    command.setId("Rename Configuration");
    command.addParam("Name", session.call.argument(0));
    command.addParam("New Name", session.call.argument(1));
    if (session.call.has("description"))
        command.addParam("Description", session.call.get("description"));
    session.carryOut(command);
    sayDone(session);
}

void runRemove(Session& session)
{
    const std::string name = session.call.argument(0);
    if (!session.isDryRun() && !session.call.has("yes")) {
        Catalogue(session.peer()).read(name);
        session.confirm("The configuration " + inQuotes(name) + " and its file will be deleted.");
    }
    session.carryOut("REMOVE_CFG", {{"RowID", name}});
    sayDone(session);
}

void runDebug(Session& session)
{
    const std::string word = session.call.argument(0);
    if (word != "on" && word != "off")
        throw Failure(EXIT_USAGE, "debug takes on or off, not " + inQuotes(word),
                      "cfgctl help debug");
    session.carryOut(word == "on" ? kCommandStartDbgPrint : kCommandStopDbgPrint, {});
    sayDone(session);
}
