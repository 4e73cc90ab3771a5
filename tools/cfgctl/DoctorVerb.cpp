#include "Catalogue.h"
#include "CfgPaths.h"
#include "Refusals.h"
#include "Session.h"
#include "SystemChecks.h"
#include "terminal/TerminalText.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace
{

/// What only the daemon knows.
void checkRows(Session& session, Findings& found)
{
    Catalogue catalogue(session.peer());
    const std::string autoStart = catalogue.readAutoStart();
    const auto [rows, leftOut] = catalogue.readAll({"File Name"});
    if (!autoStart.empty() && std::ranges::find(rows, autoStart, &DataRow::key) == rows.end())
        found.push_back(
            {true, "the auto-start names " + inQuotes(autoStart) + ", which is not there",
             "cfgctl autostart NAME, or cfgctl autostart --off", "cfgctl autostart --off"});
    std::vector<std::string> odd = leftOut;
    for (const DataRow& row : rows)
        if (!isValidText(row.key))
            odd.push_back(row.key);
    if (!odd.empty()) {
        const Failure failure = leftOutFailure("no verb reaches", odd);
        found.push_back({true, failure.problem + ": " + failure.cause, failure.next});
    }
    for (const DataRow& row : rows) {
        const std::string* const file = row.find("File Name");
        struct stat status;
        if (file != nullptr && lstat(file->c_str(), &status) == -1 && errno == ENOENT)
            found.push_back({true, "the configuration " + inQuotes(row.key) + " has no file",
                             "cfgctl save " + quotedArgument(row.key) + ", or cfgctl remove " +
                                 quotedArgument(row.key),
                             "cfgctl show " + quotedArgument(row.key)});
    }
}

std::string textOf(const Findings& found)
{
    std::string text;
    for (const Finding& finding : found)
        text += (finding.isFault ? "fault: " : "warning: ") + printableText(finding.what) +
                "\n    " + printableText(finding.advice) + '\n';
    return text;
}

} // namespace

void runDoctor(Session& session)
{
    Findings found = checkSystem();
    std::optional<Failure> silence;
    try {
        checkRows(session, found);
    } catch (Failure& failure) {
        explain(failure, session.call);
        if (failure.exit == EXIT_NO_ANSWER)
            silence = failure;
        else
            // A right that this user lacks is not the device's trouble.
            found.push_back({failure.exit != EXIT_STATE_OR_RIGHT || failure.code != FC_OK,
                             "cannot look at the configurations: " + failure.problem,
                             failure.next});
        if (silence && isServed(session.socket()))
            found.push_back(
                {true, "CfgManager runs, and does not answer: " + failure.problem,
                 "wait for what it does (cfgctl log), then systemctl restart cfgmanager",
                 "cfgctl log"});
    }
    Json::Value list(Json::arrayValue);
    for (const Finding& finding : found) {
        Json::Value& one = list.append(Json::objectValue);
        one["kind"] = finding.isFault ? "fault" : "warning";
        one["what"] = finding.what;
        one["advice"] = finding.advice;
    }
    const auto faults = std::ranges::count(found, true, &Finding::isFault);
    session.out.document()["findings"] = list;
    session.out.text(found.empty() ? "doctor: OK\n" : textOf(found));
    if (silence)
        throw Failure(*silence);
    if (faults == 0)
        return;
    const auto first = std::ranges::find(found, true, &Finding::isFault);
    throw Failure(EXIT_STATE_OR_RIGHT,
                  std::to_string(faults) + (faults == 1 ? " fault" : " faults"),
                  first->next.empty() ? first->advice : first->next);
}
