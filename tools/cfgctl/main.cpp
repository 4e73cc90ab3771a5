// The command-line client of the configuration manager. The exit status says how it ended
// (Failure.h).

#include "Completion.h"
#include "DbgPrintClient.h"
#include "Refusals.h"
#include "Session.h"
#include "terminal/TerminalText.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace
{

constexpr int kNoLogging = 5;

void showDatagram(Output& out, const DryRun& dryRun)
{
    out.document()["dryRun"] = true;
    out.document()["socket"] = dryRun.socket;
    Json::Value& datagrams = out.document()["datagrams"] = Json::arrayValue;
    for (const std::string& datagram : dryRun.datagrams) {
        datagrams.append(datagram);
        out.text(printableLines(datagram));
    }
    out.note("nothing has been sent to " + dryRun.socket);
}

int run(const Invocation& call, Output& out)
{
    gDbgLevel = call.number("verbose", kNoLogging);
    if (call.has("verbose")) // without, nothing waits for a reader of the FIFO
        setTaskName(currentTaskId(), "tCfgctl");
    try {
        Session session(call, out);
        try {
            call.verb->run(session);
        } catch (const DryRun& dryRun) {
            showDatagram(out, dryRun);
        }
        return out.end();
    } catch (Failure& failure) {
        explain(failure, call);
        return out.fail(failure, call.asked());
    } catch (const std::exception& error) {
        return out.fail({EXIT_INTERNAL, error.what(), "cfgctl doctor"}, call.asked());
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv + 1, argv + std::max(argc, 1));
    if (words.size() == 3 && words[0] == "--complete") {
        std::fputs(completionsOf(words[1], words[2]).c_str(), stdout);
        return EXIT_DONE;
    }
    try {
        const Invocation call = parseCommandLine(words);
        Output out(call.has("json"), call.verb);
        return run(call, out);
    } catch (const Failure& failure) {
        return Output(wantsJson(words), namedVerb(words)).fail(failure, "");
    }
}
