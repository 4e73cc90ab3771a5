// The text of the policy: one that is none has a fault, any other leaves everything to root and
// nothing open.

#include "FuzzTarget.h"
#include "PolicyRules.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Accounts accounts{
        [](const std::string& name) { return std::optional(static_cast<uid_t>(name.size())); },
        [](const std::string&) {
            return std::optional(GroupAccount{1, {2}});
        }};
    const std::string text = textOf(data, size);
    std::string fault;
    const auto rules = PolicyRules::parse(text, accounts, fault);
    require(rules.has_value() == fault.empty(), "a text is a policy, or has a fault", text);
    if (!rules)
        return 0;
    require(!rules->areOpen() && rules->mayBeAsked(0), "what is not granted is root's", text);
    for (const char* type : {"COMMAND", "SET", "EVENT"})
        require(rules->mayRequest(0, PolicyRules::kNobody, type, text), "root may", text);
    return 0;
}
