#include "Completion.h"
#include "Session.h"

namespace
{

Json::Value asJson(const Verb& verb)
{
    constexpr const char* kEffects[] = {"reads", "changes", "overwrites", "deletes"};
    Json::Value object;
    object["name"] = verb.name;
    object["usage"] = usageLine(verb);
    if (verb.tableArguments != nullptr)
        object["tableUsage"] = usageLine(verb, true);
    object["help"] = verb.help;
    object["effect"] = kEffects[static_cast<std::size_t>(verb.effect)];
    object["limit"] = verb.limit;
    object["options"] = Json::arrayValue;
    forEachWord(verb.options,
                [&](std::string_view name) { object["options"].append(std::string(name)); });
    object["examples"] = verb.examples;
    return object;
}

} // namespace

void runHelp(Session& session)
{
    const std::string name = session.call.argument(0);
    const Verb* const chosen = name.empty() ? nullptr : findVerb(name);
    if (!name.empty() && chosen == nullptr) {
        std::vector<std::string> all;
        for (const Verb& verb : verbs())
            all.emplace_back(verb.name);
        throw Failure(EXIT_USAGE, "unknown verb " + inQuotes(name) + didYouMean(name, all),
                      "cfgctl help");
    }
    Json::Value& list = session.out.document()["verbs"] = Json::arrayValue;
    for (const Verb& verb : verbs())
        if (chosen == nullptr || &verb == chosen)
            list.append(asJson(verb));
    session.out.text(chosen == nullptr ? helpText() : helpText(*chosen));
}

void runVersion(Session& session)
{
    session.out.document()["version"] = CFGCTL_VERSION;
    session.out.text(std::string("cfgctl ") + CFGCTL_VERSION + '\n');
}

void runCompletion(Session& session)
{
    if (const std::string shell = session.call.argument(0); !shell.empty() && shell != "bash")
        throw Failure(EXIT_USAGE, "there is completion for bash, not for " + inQuotes(shell),
                      "cfgctl completion bash");
    session.out.document()["script"] = completionScript();
    session.out.text(completionScript());
}
