#include "Refusals.h"

#include "CfgPaths.h"
#include "ClientSocket.h"
#include "SystemChecks.h"

#include <algorithm>
#include <filesystem>

namespace
{

/// Which rule for configurations' names the name breaks; "" when none. The daemon decides: this
/// only names the rule.
std::string brokenNameRule(const std::string& name)
{
    if (name.find_first_not_of(' ') == std::string::npos)
        return "a name cannot be empty or only blanks";
    if (name.size() > 255)
        return "a name has at most 255 bytes, and this one " + std::to_string(name.size());
    if (name.find('/') != std::string::npos)
        return "a name cannot hold a '/'";
    if (name == "." || name == ".." || name.starts_with("cfg_stored_set.") ||
        name.starts_with(".cfg_changes") || name.find(".~storing") != std::string::npos)
        return "the directory keeps this name for itself";
    return "";
}

std::string silentPeer()
{
    return std::string("the channel manager on ") + kChanSocket +
           (isServed(kChanSocket) ? " runs, but did not answer in time" : " does not run");
}

/// The first row that fits is taken. "NAME" in `next` is the verb's first argument, "PLACE" the
/// options and words of what a get or set is about.
struct Cause {
    const char* verbs; ///< "" for all
    Fcodes bit;
    const char* cause;
    const char* next;
};

constexpr Fcodes kOtherForm = FC_HEADER_ERROR | FC_BODY_ERROR;

constexpr Cause kCauses[] = {
    {"show start autostart remove rename", FC_NO_SUCH_NAME,
     "no configuration has this name; names are exact", "cfgctl list"},
    {"save", FC_NO_SUCH_NAME, "the channel manager did not write the file",
     "cfgctl log --severity error"},
    {"save rename import", FC_BAD_VALUE,
     "the name is refused, or its file could not be written or moved",
     "cfgctl log --severity error"},
    {"start", FC_UNAVAILABLE,
     "it is being loaded, or its last result could not be written (this refusal has made it "
     "available again), or the channel manager refused its file",
     "cfgctl wait NAME=Available"},
    {"import restore", FC_UNAVAILABLE,
     "the manager could not take the file: it has to be able to read and to move it",
     "cfgctl log --severity error"},
    {"rename", FC_UNAVAILABLE, "its file could not be moved; it may be gone", "cfgctl show NAME"},
    {"remove", FC_UNAVAILABLE, "its file could not be deleted, and is still there",
     "cfgctl show NAME"},
    {"set", FC_ACCESS_DENIED,
     "the value is read-only, or the device's policy does not let you "
     "(/etc/sysmgt/cfg_policy.json)",
     "cfgctl log --severity warning"},
    {"", FC_ACCESS_DENIED, "the device's policy does not let you (/etc/sysmgt/cfg_policy.json)",
     "cfgctl log --severity warning"},
    {"get", FC_NO_SUCH_NAME, "the daemon has no such dataset, component, key or property",
     "cfgctl help get"},
    {"set", FC_NO_SUCH_NAME, "the daemon has no such dataset, component, key or property",
     "cfgctl PLACE"},
    {"set", FC_BAD_VALUE, "the value is none that the property takes", "cfgctl PLACE"},
    {"set", FC_WRONG_TYPE, "the property is of another type", "cfgctl PLACE"},
    {"", FC_UNAVAILABLE, "the daemon cannot do it now", "cfgctl status"},
    {"", FC_COMM_ERROR, "a peer behind the daemon is silent", "cfgctl status"},
    {"", kOtherForm, "the daemon answers in a form that is none here: is it of this suite?",
     "ls -l /tmp/sock*"},
};

/// "get DATASET COMPONENT" of a set: what is there.
std::string typedPlace(Invocation call)
{
    call.verb = findVerb("get");
    call.arguments.resize(std::min<std::size_t>(call.arguments.size(), call.has("table") ? 1 : 2));
    std::erase_if(call.options, [](const auto& option) {
        return option.first != "table" && option.first != "socket";
    });
    return call.typed();
}

/// A manager that cannot write has no code for it.
void blameDisk(Failure& failure, const std::string& verb)
{
    const bool writes = holdsWord("import restore rename remove", verb) &&
                        (holds(failure.code, FC_BAD_VALUE) || holds(failure.code, FC_UNAVAILABLE));
    if (verb != "save" && !writes)
        return;
    const auto trouble = diskTrouble();
    if (!trouble || !trouble->isFault)
        return;
    failure.cause = trouble->what;
    failure.next = std::string("df -h ") + kCfgDir;
}

void addCause(Failure& failure, const Invocation& call)
{
    const auto fits = [&](const Cause& row) {
        return holds(failure.code, row.bit) &&
               (*row.verbs == '\0' || holdsWord(row.verbs, call.verb->name));
    };
    const auto row = std::ranges::find_if(kCauses, fits);
    const bool hasNext = !failure.next.empty(); // a verb that can be run again says so
    if (!hasNext)
        failure.next = row == std::end(kCauses) ? "cfgctl log --severity error" : row->next;
    if (row == std::end(kCauses))
        return;
    failure.cause = row->cause;
    if (const std::size_t at = failure.next.find("NAME"); !hasNext && at != std::string::npos)
        failure.next.replace(at, 4, quotedArgument(call.argument(0)));
    if (const std::size_t at = failure.next.find("PLACE"); !hasNext && at != std::string::npos)
        failure.next.replace(at, 5, typedPlace(call));
    const std::string name = call.verb->name;
    if (row->bit == FC_BAD_VALUE && name != "set") {
        const bool isFile = name == "import";
        const std::string rule =
            brokenNameRule(isFile ? std::filesystem::path(call.argument(0)).filename().string()
                                  : call.arguments.back());
        if (!rule.empty()) {
            failure.cause = rule;
            failure.next = "cfgctl help " + name;
        }
    }
    if (row->bit == FC_COMM_ERROR && holdsWord("save start", name))
        failure.cause = silentPeer();
    if (!failure.cause.empty() && failure.cause == row->cause)
        blameDisk(failure, name);
}

} // namespace

Failure refusal(Fcodes code)
{
    Failure failure(exitOf(code), formatCode(code));
    failure.code = code;
    return failure;
}

void explain(Failure& failure, const Invocation& call)
{
    if (call.verb == nullptr)
        return;
    if (failure.cause.empty() && failure.code != FC_OK)
        addCause(failure, call);
    if (failure.next.empty())
        failure.next = std::string("cfgctl help ") + call.verb->name;
}
