#include "PolicyRules.h"

#include "MessageHeader.h"
#include "base/Credentials.h"

#include <algorithm>
#include <exception>
#include <json/reader.h>
#include <json/value.h>
#include <memory>
#include <stdexcept>

namespace
{

constexpr uid_t kRoot = 0;
constexpr char kEverybody[] = "*";
constexpr char kOtherCommands[] = "*";

void require(bool holds, std::string fault, const std::string& where = {})
{
    if (!holds)
        throw std::runtime_error(fault.append(where));
}

Json::Value read(const std::string& text)
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_); // a name that stands twice is a fault
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    std::string fault;
    const bool isJson = reader->parse(text.data(), text.data() + text.size(), &document, &fault);
    require(isJson, fault);
    return document;
}

} // namespace

class PolicyRules::Parser
{
public:
    explicit Parser(const Accounts& accounts) : mAccounts(accounts) {}

    PolicyRules parse(const Json::Value& document) const
    {
        require(document.isObject(), "no object");
        PolicyRules rules = forRootOnly();
        for (auto entry = document.begin(); entry != document.end(); ++entry) {
            const std::string key = entry.name();
            if (key == "commands")
                parseCommands(*entry, rules);
            else if (key == "set")
                rules.mSet = parseRule(key, *entry);
            else if (key == "events")
                rules.mEvents = parseRule(key, *entry);
            else if (key == "siblings")
                rules.mSiblings = parseRule(key, *entry);
            else
                require(false, "unknown key=", key);
        }
        return rules;
    }

private:
    void parseCommands(const Json::Value& commands, PolicyRules& rules) const
    {
        require(commands.isObject(), "no object key=commands");
        for (auto entry = commands.begin(); entry != commands.end(); ++entry) {
            const std::string command = entry.name();
            Rule& rule =
                command == kOtherCommands ? rules.mOtherCommands : rules.mCommands[command];
            rule = parseRule(command, *entry);
        }
    }

    Rule parseRule(const std::string& name, const Json::Value& value) const
    {
        require(value.isObject(), "no object key=", name);
        Rule rule;
        for (auto list = value.begin(); list != value.end(); ++list) {
            const std::string key = list.name();
            std::string path = name;
            path.append(".").append(key);
            require(key == "users" || key == "groups", "unknown key=", path);
            require(list->isArray(), "no array key=", path);
            for (const Json::Value& account : *list) {
                require(account.isString(), "no name in key=", path);
                if (key == "groups")
                    addGroup(account.asString(), rule);
                else if (account == kEverybody)
                    rule.isForAll = true;
                else
                    addUser(account.asString(), rule);
            }
        }
        return rule;
    }

    void addUser(const std::string& name, Rule& rule) const
    {
        const std::optional<uid_t> user = mAccounts.findUser(name);
        require(user.has_value(), "unknown user=", name);
        require(isUsable(*user), "stands for unknown users: user=", name);
        rule.users.push_back(*user);
    }

    void addGroup(const std::string& name, Rule& rule) const
    {
        const std::optional<GroupAccount> group = mAccounts.findGroup(name);
        require(group.has_value(), "unknown group=", name);
        require(isUsable(group->id), "stands for unknown groups: group=", name);
        rule.groups.push_back(group->id);
        std::ranges::copy_if(group->members, std::back_inserter(rule.users), isUsable);
    }

    static bool isUsable(id_t id) { return id != kNobody && !isOverflowId(id); }

    const Accounts& mAccounts;
};

PolicyRules PolicyRules::forRootOnly()
{
    PolicyRules rules;
    rules.mAreOpen = false;
    return rules;
}

std::optional<PolicyRules> PolicyRules::parse(const std::string& text, const Accounts& accounts,
                                              std::string& fault)
{
    try {
        return Parser(accounts).parse(read(text));
    } catch (const std::exception& error) { // the JSON library throws too
        fault = error.what();
        return std::nullopt;
    }
}

bool PolicyRules::mayRequest(uid_t user, gid_t group, std::string_view type,
                             std::string_view command) const
{
    if (type == kTypeSet)
        return grants(mSet, user, group);
    if (type == kTypeEvent)
        return grants(mEvents, user, group);
    const auto own = mCommands.find(command);
    return grants(own == mCommands.end() ? mOtherCommands : own->second, user, group);
}

bool PolicyRules::mayBeAsked(uid_t user) const { return grants(mSiblings, user, kNobody); }

bool PolicyRules::grants(const Rule& rule, uid_t user, gid_t group) const
{
    return mAreOpen || rule.isForAll || user == kRoot ||
           std::ranges::find(rule.users, user) != rule.users.end() ||
           std::ranges::find(rule.groups, group) != rule.groups.end();
}
