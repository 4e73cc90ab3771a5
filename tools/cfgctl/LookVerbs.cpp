#include "Catalogue.h"
#include "CfgPaths.h"
#include "Confirmation.h"
#include "MessageText.h"
#include "Refusals.h"
#include "Session.h"
#include "SystemChecks.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds kPoll = milliseconds(300);
constexpr const char* kStates[] = {"Available", "Inprogress", "Unavailable"};

/// JSON members of a row, by the catalogue's properties.
constexpr std::pair<const char*, const char*> kProperties[] = {
    {"Name", "name"},
    {"State", "state"},
    {"Time", "time"},
    {"File Name", "file"},
    {"Description", "description"},
};

Json::Value asJson(const DataRow& row, const std::string& autoStart)
{
    Json::Value object(Json::objectValue);
    for (const auto& [property, member] : kProperties)
        if (const std::string* const value = row.find(property); value != nullptr)
            object[member] = *value;
    object["name"] = row.key;
    object["atBoot"] = row.key == autoStart;
    return object;
}

/// False when the file of the row is not there; null when this user may not look.
Json::Value fileIsThere(const DataRow& row)
{
    const std::string* const file = row.find("File Name");
    struct stat status;
    if (file != nullptr && stat(file->c_str(), &status) == 0)
        return true;
    return file == nullptr || errno == ENOENT ? Json::Value(false) : Json::Value();
}

/// Null where this user may not ask.
Json::Value servedOrUnknown(const char* path)
{
    const int error = probe(path);
    return error == EACCES ? Json::Value() : Json::Value(error == 0);
}

/// A start that waits for its confirmation; nothing where this user may not look.
void addConfirmation(Json::Value& status)
{
    const Confirmation shared;
    if (!shared.isOpen() && shared.error() != ENOENT)
        return;
    status["toConfirm"] = "";
    const auto start = shared.isOpen() ? shared.read() : std::nullopt;
    if (!start)
        return;
    status["toConfirm"] = start->name;
    status["goesBackTo"] = start->before;
    status["secondsLeft"] =
        static_cast<Json::Int64>(std::max<std::int64_t>(start->deadline - secondsSinceBoot(), 0));
}

/// What the manager knows; throws Failure when it does not answer.
void askForStatus(Session& session, Json::Value& status)
{
    Catalogue catalogue(session.peer());
    const std::string autoStart = catalogue.readAutoStart();
    status["autoStart"] = autoStart;
    if (const auto running = catalogue.readRunning()) {
        status["running"] = running->name;
        status["fallback"] = running->isFallback;
    }
    const Listing listing = catalogue.readAll({"File Name"});
    const std::vector<DataRow>& rows = listing.rows;
    status["configurationCount"] = static_cast<Json::UInt64>(rows.size() + listing.leftOut.size());
    bool isSound =
        autoStart.empty() || std::ranges::find(rows, autoStart, &DataRow::key) != rows.end();
    Json::Value& missing = status["withoutFile"] = Json::arrayValue;
    for (const DataRow& row : rows)
        if (const Json::Value there = fileIsThere(row); there.isBool() && !there.asBool()) {
            missing.append(Json::objectValue)["name"] = row.key;
            isSound = isSound && row.key != autoStart;
        }
    status["autoStartIsSound"] = isSound;
    status["leftOut"] = namesAsJson(listing.leftOut);
    if (!listing.leftOut.empty())
        throw leftOutFailure("nobody can ask for", listing.leftOut);
}

std::string untilWhen(int count, int seconds)
{
    if (count == 0 && seconds == 0)
        return ", until it is interrupted";
    return (count == 0 ? ""
                       : " for " + std::to_string(count) + (count == 1 ? " event" : " events")) +
           (seconds == 0 ? ""
                         : (count == 0 ? " for " : ", at most ") + std::to_string(seconds) + " s");
}

/// A daemon that has started anew knows no subscribers, and may not serve them yet.
bool subscribeAgain(Session& session, const std::function<void()>& subscribe)
{
    try {
        subscribe();
    } catch (const Failure& failure) {
        if (failure.exit != EXIT_NO_ANSWER)
            throw;
        return false;
    }
    session.out.note(session.peer().name() + " has started anew, still watching");
    return true;
}

} // namespace

void runList(Session& session)
{
    Catalogue catalogue(session.peer());
    const Listing listing = catalogue.readAll({"State", "Time", "Description"});
    const std::string autoStart = catalogue.readAutoStart();
    Json::Value list(Json::arrayValue);
    for (const DataRow& row : listing.rows)
        list.append(asJson(row, autoStart));
    constexpr Column kColumns[] = {{"NAME", "name"},
                                   {"STATE", "state"},
                                   {"TIME", "time"},
                                   {"AT BOOT", "atBoot"},
                                   {"DESCRIPTION", "description"}};
    session.out.table("configurations", kColumns, list);
    session.out.document()["leftOut"] = namesAsJson(listing.leftOut);
    if (!listing.leftOut.empty())
        throw leftOutFailure("left out", listing.leftOut);
    if (listing.rows.empty())
        session.out.note("no configurations yet; cfgctl save NAME makes one");
}

void runShow(Session& session)
{
    Catalogue catalogue(session.peer());
    const DataRow row = catalogue.read(session.call.argument(0));
    Json::Value object = asJson(row, catalogue.readAutoStart());
    if (const std::string* const code = row.find("Fcode"); code != nullptr) {
        object["lastCode"] = hexCode(static_cast<Fcodes>(textToInt(*code)));
        object["lastResult"] = formatCode(static_cast<Fcodes>(textToInt(*code)));
    }
    object["fileIsThere"] = fileIsThere(row);
    constexpr Column kLines[] = {{"Name", "name"},
                                 {"Description", "description"},
                                 {"File", "file"},
                                 {"File is there", "fileIsThere"},
                                 {"Time", "time"},
                                 {"State", "state"},
                                 {"Last result", "lastResult"},
                                 {"Starts at boot", "atBoot"}};
    session.out.record(kLines, object);
}

void runStatus(Session& session)
{
    Json::Value status;
    std::optional<Failure> failure;
    try {
        askForStatus(session, status);
    } catch (const Failure& reason) {
        failure = reason;
    }
    const bool isBusy = failure && failure->exit == EXIT_NO_ANSWER && session.deadline.isOver() &&
                        isServed(session.socket());
    if (failure && failure->exit == EXIT_NO_ANSWER)
        failure->next = isBusy ? "cfgctl -t 130 status" : "systemctl status cfgmanager";
    status["answers"] = !failure || failure->exit != EXIT_NO_ANSWER;
    status["busy"] = isBusy;
    status["channelManager"] = servedOrUnknown(kChanSocket);
    status["deviceManager"] = servedOrUnknown(kDevSocket);
    status["collector"] = isCollecting();
    addConfirmation(status);
    std::vector<Column> lines = {{"CfgManager answers", "answers"},
                                 {"Busy", "busy"},
                                 {"Running", "running"},
                                 {"Fallback at boot", "fallback"},
                                 {"To be confirmed", "toConfirm"},
                                 {"Auto-start", "autoStart"},
                                 {"Auto-start is sound", "autoStartIsSound"},
                                 {"Configurations", "configurationCount"},
                                 {"Without their file", "withoutFile"},
                                 {"Channel manager there", "channelManager"},
                                 {"Device manager there", "deviceManager"},
                                 {"Log is collected", "collector"}};
    if (const std::string name = status.get("toConfirm", "").asString(); !name.empty()) {
        const auto line = std::ranges::find(lines, std::string_view("toConfirm"), &Column::key);
        lines.insert(line + 1,
                     {{"Else comes back", "goesBackTo"}, {"Seconds left", "secondsLeft"}});
        if (!session.out.isJson())
            session.out.note("to keep " + inQuotes(name) + ", type: cfgctl confirm");
    }
    session.out.record(lines, status);
    if (failure)
        throw Failure(*failure);
}

void runWait(Session& session)
{
    std::string name = session.call.argument(0);
    std::string state;
    if (const std::size_t at = name.rfind('='); at != std::string::npos) {
        std::string next = "cfgctl wait " + quotedArgument(name + '=');
        state = name.substr(at + 1); // none behind it: any state, for names that hold a '='
        name.resize(at);
        for (const char* const known : kStates)
            if (!didYouMean(state, {known}).empty())
                next = "cfgctl wait " + quotedArgument(name + '=' + known);
        if (!state.empty() && std::ranges::find(kStates, state) == std::end(kStates))
            throw Failure(EXIT_USAGE,
                          inQuotes(state) + " is no state: " + kStates[0] + ", " + kStates[1] +
                              " or " + kStates[2] +
                              "; a name that holds a '=' wants one behind it" +
                              didYouMean(state, {std::begin(kStates), std::end(kStates)}),
                          next);
    }
    requireValidText(name);
    session.waitsFor = session.call.argument(0);
    WaitNote note(session.waitsFor);
    Catalogue catalogue(session.peer());
    std::string seen; // "" until it has been answered once
    while (true) {
        try {
            const std::optional<DataRow> row = catalogue.findQuietly(name);
            const std::string* const now = row ? row->find("State") : nullptr;
            seen = row ? "it is " + (now == nullptr ? "in no state" : *now) : "it is not there";
            if (row && (state.empty() || (now != nullptr && *now == state)))
                break;
        } catch (const Failure& failure) {
            // It may start again meanwhile.
            if (failure.exit != EXIT_NO_ANSWER || (seen.empty() && session.deadline.isOver()))
                throw;
        }
        if (session.deadline.isOver())
            throw Failure(EXIT_TIME,
                          "not in " + std::to_string(session.deadline.seconds()) + " s: " + seen,
                          "cfgctl list");
        note.show(session.deadline);
        std::ignore = poll(nullptr, 0, static_cast<int>(session.deadline.left(kPoll).count()));
    }
    session.out.text(session.call.asked() + ": OK\n");
}

void runWatch(Session& session)
{
    constexpr Column kColumns[] = {{"", "time", 18},
                                   {"", "event", 23},
                                   {"", "source", 16},
                                   {"", "result"},
                                   {"", "parameters"}};
    const int count = session.call.number("count", 0);
    const int limit = session.call.number("for", 0);
    Peer& peer = session.peer();
    const auto subscribe = [&] {
        if (const Answer answer = peer.subscribe(); !answer.ok())
            throw refusal(answer.code);
    };
    subscribe();
    const Deadline end(limit);
    bool isSubscribed = true;
    session.out.note("watching " + peer.name() + untilWhen(count, limit));

    int seen = 0;
    MessageEvent event;
    while ((count == 0 || seen < count) && !end.isOver()) {
        if (peer.nextEvent(event, end.left(kPoll))) {
            Json::Value line;
            line["time"] = event.Time;
            line["event"] = event.ID;
            line["source"] = event.Source;
            line["code"] = hexCode(event.Fcode);
            line["result"] = formatCode(event.Fcode);
            Json::Value& parameters = line["parameters"] = Json::arrayValue;
            for (auto param = event.getParamsBegin(); param != event.getParamsEnd(); ++param) {
                Json::Value& parameter = parameters.append(Json::objectValue);
                parameter["name"] = param->first;
                parameter["value"] = param->second;
            }
            session.out.line(kColumns, line);
            ++seen;
        } else if (!isSubscribed || peer.hasStartedAnew()) {
            // It may come long after the first, and shortly before the end.
            session.deadline.restart(end.left(std::chrono::seconds(session.deadline.seconds())));
            isSubscribed = subscribeAgain(session, subscribe);
        }
    }
    if (seen < count)
        throw Failure(EXIT_TIME,
                      std::to_string(seen) + " of " + std::to_string(count) + " events in " +
                          std::to_string(limit) + " s",
                      "cfgctl log");
}
