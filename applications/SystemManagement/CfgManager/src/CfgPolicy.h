#pragma once

// The policy in force: that of the file kPolicyFile, read at start-up and when it has changed, for
// which it is looked at once a second at most, when somebody asks. Without the file everybody may
// do everything; while it cannot be read, or is no policy, nobody but root may do anything, and it
// is read again at each look. Any thread may call.

#include "IAccessPolicy.h"
#include "PolicyRules.h"

#include <chrono>
#include <mutex>
#include <tuple>

class CfgPolicy : public IAccessPolicy
{
public:
    /// Reads the file, so that the start tells what is wrong with it.
    CfgPolicy();

    CfgPolicy(const CfgPolicy&) = delete;
    CfgPolicy& operator=(const CfgPolicy&) = delete;

    /// The one of this process.
    static CfgPolicy& ofProcess();

    bool mayRequest(const ucred& sender, std::string_view type, std::string_view command) override;
    bool mayBeAsked(const std::string& responderPath) override;

private:
    /// What tells that the file is another one, or has been written; or the errno of the look.
    using Identity = std::tuple<int, dev_t, ino_t, off_t, time_t, long, time_t, long>;

    void refresh();
    void apply(int error);

    std::mutex mMutex; // guards all below
    PolicyRules mRules;
    std::chrono::steady_clock::time_point mNextLook;
    Identity mLastSeen;
    std::string mFault; // of what was read last
};
