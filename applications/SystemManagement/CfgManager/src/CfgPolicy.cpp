#include "CfgPolicy.h"

#include "CfgPaths.h"
#include "DbgLine.h"
#include "base/Credentials.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

namespace
{

constexpr char kUnit[] = "CfgPolicy";
constexpr std::chrono::seconds kLookInterval(1);
constexpr off_t kLongestPolicy = 1 << 16; // bytes; a parsed one takes about fifty times as much

// The accounts. Whoever reads the policy holds its lock, and nobody else in this process looks at
// them.

std::optional<uid_t> findUser(const std::string& name)
{
    const passwd* const user = getpwnam(name.c_str());
    if (user == nullptr || user->pw_name != name)
        return std::nullopt;
    return user->pw_uid;
}

std::optional<GroupAccount> findGroup(const std::string& name)
{
    const ::group* const found = getgrnam(name.c_str());
    if (found == nullptr || found->gr_name != name)
        return std::nullopt;
    GroupAccount account{found->gr_gid, {}};
    for (char** member = found->gr_mem; *member != nullptr; ++member)
        if (const std::optional<uid_t> user = findUser(*member))
            account.members.push_back(*user);
    setpwent();
    while (const passwd* const user = getpwent())
        if (user->pw_gid == account.id)
            account.members.push_back(user->pw_uid);
    endpwent();
    return account;
}

/// 0, or an errno value.
int readPolicy(std::string& text)
{
    const Descriptor file(openRegularFile(kPolicyFile));
    struct stat opened {
    };
    if (!file.isOpen() || fstat(file.get(), &opened) == -1)
        return errno;
    return opened.st_size > kLongestPolicy ? EFBIG : readToEnd(file.get(), text);
}

} // namespace

CfgPolicy& CfgPolicy::ofProcess()
{
    static CfgPolicy& policy = *new CfgPolicy; // the responder may ask to the last
    return policy;
}

CfgPolicy::CfgPolicy()
{
    const std::lock_guard guard(mMutex);
    mLastSeen = Identity(ENOENT, 0, 0, 0, 0, 0, 0, 0);
    refresh();
}

bool CfgPolicy::mayRequest(const ucred& sender, std::string_view type, std::string_view command)
{
    const std::lock_guard guard(mMutex);
    refresh();
    if (!isKnownSender(sender))
        return mRules.mayRequest(PolicyRules::kNobody, PolicyRules::kNobody, type, command);
    return mRules.mayRequest(sender.uid, sender.gid, type, command);
}

bool CfgPolicy::mayBeAsked(const std::string& responderPath)
{
    const std::lock_guard guard(mMutex);
    refresh();
    if (mRules.areOpen())
        return true;
    // Whoever owns a link at the path can lead it elsewhere.
    struct stat atPath {
    };
    struct stat socket {
    };
    return lstat(responderPath.c_str(), &atPath) == 0 && mRules.mayBeAsked(atPath.st_uid) &&
           stat(responderPath.c_str(), &socket) == 0 && mRules.mayBeAsked(socket.st_uid) &&
           S_ISSOCK(socket.st_mode);
}

void CfgPolicy::refresh()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < mNextLook)
        return;
    mNextLook = now + kLookInterval;

    struct stat file {
    };
    int error = stat(kPolicyFile, &file) == 0 ? 0 : errno;
    struct stat link {
    };
    if (error == ENOENT && lstat(kPolicyFile, &link) == 0)
        error = ENOLINK; // a link that leads nowhere is no leave to do everything
    const Identity seen(error, file.st_dev, file.st_ino, file.st_size, file.st_mtim.tv_sec,
                        file.st_mtim.tv_nsec, file.st_ctim.tv_sec, file.st_ctim.tv_nsec);
    if (seen == mLastSeen && mFault.empty())
        return; // a fault may be gone by itself: an account has been added
    mLastSeen = seen;
    apply(error);
}

void CfgPolicy::apply(int error)
{
    std::optional<PolicyRules> rules;
    std::string text;
    std::string fault;
    const bool isAbsent = error == ENOENT;
    if (error == 0)
        error = readPolicy(text);
    if (isAbsent)
        rules.emplace();
    else if (error != 0)
        fault = std::strerror(error);
    else
        rules = PolicyRules::parse(text, {findUser, findGroup}, fault);

    if (isAbsent)
        DBG_LOG(SEV_SYS) << "apply: No policy, everybody may do everything file=" << kPolicyFile;
    else if (rules)
        DBG_LOG(SEV_SYS) << "apply: In force policy=" << kPolicyFile;
    else if (fault != mFault)
        DBG_LOG(SEV_ERROR) << "apply: Broken policy, only root may do anything file=" << kPolicyFile
                           << " fault=" << fault;
    mRules = rules.value_or(PolicyRules::forRootOnly());
    mFault = fault;
}
