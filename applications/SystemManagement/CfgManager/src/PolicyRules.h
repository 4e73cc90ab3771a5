#pragma once

// Who may do what, as the integrator has written it; docs/security.md has the format. A plain
// value: names become numbers when the text is parsed, and decisions compare numbers. Root may do
// everything; others, once there is a text, only what it grants.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// A group of the device, with those users who are its members by the accounts.
struct GroupAccount {
    gid_t id;
    std::vector<uid_t> members;
};

/// The device's accounts; nothing for a name that is unknown.
struct Accounts {
    std::function<std::optional<uid_t>(const std::string& name)> findUser;
    std::function<std::optional<GroupAccount>(const std::string& name)> findGroup;
};

class PolicyRules
{
public:
    /// Everybody may do everything.
    PolicyRules() = default;

    /// Nobody but root may do anything.
    static PolicyRules forRootOnly();

    /// The rules of the text; nothing, and in `fault` what is wrong, for one that is no policy.
    static std::optional<PolicyRules> parse(const std::string& text, const Accounts& accounts,
                                            std::string& fault);

    bool areOpen() const { return mAreOpen; }

    /// `type` and `command` as IAccessPolicy has them.
    bool mayRequest(uid_t user, gid_t group, std::string_view type, std::string_view command) const;
    bool mayBeAsked(uid_t user) const;

    /// A user and group that no account has and no rule names.
    static constexpr id_t kNobody = static_cast<id_t>(-1);

private:
    struct Rule {
        bool isForAll = false;
        std::vector<uid_t> users;
        std::vector<gid_t> groups;
    };
    class Parser;

    bool grants(const Rule& rule, uid_t user, gid_t group) const;

    bool mAreOpen = true;
    std::map<std::string, Rule, std::less<>> mCommands; // those with a rule of their own
    Rule mOtherCommands;
    Rule mSet;
    Rule mEvents;
    Rule mSiblings;
};
