#include "Session.h"

#include "CfgPaths.h"
#include "Refusals.h"
#include "terminal/TerminalText.h"

#include <cstdio>
#include <iostream>
#include <unistd.h>

Session::Session(const Invocation& invocation, Output& output)
    : call(invocation), out(output), deadline(invocation.number("timeout", invocation.verb->limit)),
      waitsFor(invocation.verb->waitsFor)
{
}

std::string Session::socket() const { return call.get("socket", kCfgSocket); }

Peer& Session::peer()
{
    if (!mPeer) {
        const std::string path = socket();
        const std::string name = path == kCfgSocket ? "CfgManager" : "the daemon";
        mPeer.emplace(path, name, deadline, waitsFor, isDryRun());
    }
    return *mPeer;
}

void Session::confirm(const std::string& question)
{
    if (call.has("yes") || isDryRun())
        return;
    if (isatty(STDIN_FILENO) != 1 || isatty(STDERR_FILENO) != 1)
        throw Failure(EXIT_USAGE, question + " Not without --yes", "cfgctl --yes " + call.typed());
    std::fprintf(stderr, "%s [y/N] ", printableText(question).c_str());
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw Failure(EXIT_USAGE, "not done, as you said", "cfgctl --dry-run " + call.typed());
    deadline.restart();
}

Answer Session::carryOut(const MessageCommand& command)
{
    Answer answer = peer().command(command);
    if (!answer.ok())
        throw refusal(answer.code);
    return answer;
}

Answer Session::carryOut(const char* id,
                         std::initializer_list<std::pair<const char*, std::string>> parameters)
{
    MessageCommand command;
    command.setId(id);
    for (const auto& [name, value] : parameters)
        command.addParam(name, value);
    return carryOut(command);
}
