// Each call on files that a command makes, or a boot, with its helpers: the daemon is killed at it,
// or it fails once. After three more starts what was acknowledged must be there, and the rest is
// the old or the new as a whole. One call in 23 is taken, or in SYSMGT_FAULTS.

#include "CfgPaths.h"
#include "SavedCatalogue.h"

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <optional>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// A daemon whose calls on files, and those of its helpers, pass through this process.
class WatchedDaemon
{
public:
    explicit WatchedDaemon(Device& device)
    {
        std::promise<int> listener;
        mStarter = std::thread([this, &device, &listener] {
            mStarterId = gettid();
            listener.set_value(watchCalls());
            try {
                device.start("CfgManager", {"-v", "5"});
            } catch (const std::exception&) { // killed before it served
            }
            mStarted.set_value();
            mEnd.get_future().wait(); // the daemon lives as long as the thread that started it
        });
        mListener = listener.get_future().get();
        EXPECT_NE(-1, mListener);
        mServer = std::thread([this] { serve(); });
    }

    ~WatchedDaemon()
    {
        mEnd.set_value();
        mStarter.join();
        mServer.join();
        close(mListener);
    }

    void waitUntilStarted() { mStarted.get_future().wait(); }

    /// From here on the n-th call fails with `error`, or the daemon is killed at it (0).
    void arm(int n, int error)
    {
        mError = error;
        mCountdown = n + 1;
    }

    bool wasReached() const { return mCountdown <= 0; }

private:
    static int watchCalls()
    {
        std::vector<sock_filter> filter = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
        for (const unsigned call :
             {SYS_open,      SYS_openat,     SYS_write,    SYS_pwrite64,   SYS_fsync,
              SYS_fdatasync, SYS_rename,     SYS_renameat, SYS_renameat2,  SYS_link,
              SYS_linkat,    SYS_unlink,     SYS_unlinkat, SYS_mkdir,      SYS_rmdir,
              SYS_fallocate, SYS_ftruncate,  SYS_fchown,   SYS_fchmod,     SYS_stat,
              SYS_lstat,     SYS_newfstatat, SYS_read,     SYS_getdents64, SYS_syncfs}) {
            filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
            filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
        }
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
        const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                        SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
    }

    void serve()
    {
        pollfd listener = {mListener, POLLIN, 0};
        while (poll(&listener, 1, -1) == 1 && (listener.revents & POLLIN) != 0) {
            seccomp_notif call = {};
            if (ioctl(mListener, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0)
                continue;
            seccomp_notif_resp answer = {call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
            if (isOnFiles(call) && mCountdown > 0 && --mCountdown == 0) {
                if (mError != 0)
                    answer = {call.id, 0, -mError, 0};
                else
                    ChildProcess({"/usr/bin/pkill", "-KILL", "-x", "CfgManager"}).wait();
            }
            ioctl(mListener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
        }
    }

    /// Pipes are the sanitizers' own, which take no failure.
    bool isOnFiles(const seccomp_notif& call) const
    {
        if (static_cast<pid_t>(call.pid) == mStarterId)
            return false;
        if (call.data.nr != SYS_read && call.data.nr != SYS_write)
            return true;
        std::error_code noLink;
        const std::string descriptor =
            "/proc/" + std::to_string(call.pid) + "/fd/" + std::to_string(call.data.args[0]);
        return !std::filesystem::read_symlink(descriptor, noLink).native().starts_with("pipe:");
    }

    std::thread mStarter;
    std::atomic<pid_t> mStarterId = 0;
    std::promise<void> mStarted;
    std::promise<void> mEnd;
    std::thread mServer;
    int mListener = -1;
    std::atomic<int> mCountdown = 0;
    std::atomic<int> mError = 0;
};

struct Step {
    const char* name;
    const char* id; ///< A boot, when empty.
    Parameters parameters;
    Channels::Mode mode;
    std::function<void(Catalogue&)> change; ///< What it makes of the catalogue.
};

class FaultTest : public testing::TestWithParam<int>
{
protected:
    /// False when the step makes fewer calls.
    bool runWithFault(const Step& step, int n, int error)
    {
        std::filesystem::remove_all(kCfgDir);
        placeCatalogue({"a", "b", "c", "d"}, "c");
        writeFile("/data/new/e", "imported");
        writeFile("/data/new/b", "imported");
        const Catalogue before = storedCatalogue();
        Catalogue after = before;
        step.change(after);
        bool isAcknowledged = *step.id == 0;
        bool wasReached = false;
        {
            WatchedDaemon daemon(mDevice);
            if (*step.id == 0)
                daemon.arm(n, error);
            daemon.waitUntilStarted();
            if (*step.id != 0) {
                Channels::finishRequests(); // the boot is over
                mChannels.mode = step.mode;
                daemon.arm(n, error);
                isAcknowledged = send(commandText(step.id, step.parameters),
                                      [&] { return error == 0 && daemon.wasReached(); });
            }
            wasReached = daemon.wasReached();
            daemon.arm(-1, 0);
            mDevice.cut("CfgManager");
        }
        startThrice(mDevice);
        Catalogue found = storedCatalogue();
        for (auto& [name, row] : found.rows) // a saved file has a number
            row.second = row.second.substr(0, row.second.find(' '));
        EXPECT_TRUE(found == after || (!isAcknowledged && found == before))
            << step.name << (isAcknowledged ? " acknowledged" : " cut off") << ", errno " << error
            << " at call " << n << "; found:\n"
            << describe(found, before) << "before:\n"
            << describe(before, found) << "after:\n"
            << describe(after, found);
        return wasReached;
    }

    /// True when it is acknowledged with OK; false too when the daemon has gone.
    static bool send(const std::string& command, const std::function<bool()>& hasGone)
    {
        ScriptedPeer client("/tmp/sockFault");
        const std::string body = "<BODY>\n" + command + "</BODY>\n";
        client.send(kCfgSocket, ScriptedPeer::answerText(1, "COMMAND", FC_OK, body));
        eventually([&] { return hasGone() || !client.nothingCame(); });
        return !client.nothingCame() && client.receive().header.Fcode == FC_OK;
    }

    Device mDevice;
    Channels mChannels;
};

const std::pair<std::string, std::string> kSaved = {"words", "channels"};

const Step kSteps[] = {
    {"boot", "", {}, Channels::Mode::OK, [](Catalogue&) {}},
    {"save of a new name",
     "SAVE_CFG",
     {{"Name", "e"}, {"Description", "words"}, {"AutoStart", "true"}},
     Channels::Mode::OK,
     [](Catalogue& rows) {
         rows.rows["e"] = kSaved;
         rows.autoStart = "e";
     }},
    {"save over a configuration",
     "SAVE_CFG",
     {{"Name", "b"}, {"Description", "words"}, {"AutoStart", "true"}},
     Channels::Mode::OK,
     [](Catalogue& rows) {
         rows.rows["b"] = kSaved;
         rows.autoStart = "b";
     }},
    {"save of a new name, refused",
     "SAVE_CFG",
     {{"Name", "e"}, {"AutoStart", "true"}},
     Channels::Mode::REFUSE,
     [](Catalogue&) {}},
    {"save over a configuration, refused",
     "SAVE_CFG",
     {{"Name", "b"}, {"AutoStart", "true"}},
     Channels::Mode::REFUSE_AND_WRITE,
     [](Catalogue&) {}},
    {"import of a new name",
     "Import Configuration",
     {{"File", "/data/new/e"}, {"Description", "words"}, {"AutoStart", "true"}},
     Channels::Mode::OK,
     [](Catalogue& rows) {
         rows.rows["e"] = {"words", "imported"};
         rows.autoStart = "e";
     }},
    {"import over a configuration",
     "Import Configuration",
     {{"File", "/data/new/b"}, {"Description", "words"}},
     Channels::Mode::OK,
     [](Catalogue& rows) {
         rows.rows["b"] = {"words", "imported"};
     }},
    {"rename",
     "Rename Configuration",
     {{"Name", "c"}, {"New Name", "e"}, {"Description", "words"}},
     Channels::Mode::OK,
     [](Catalogue& rows) {
         rows.rows.erase("c");
         rows.rows["e"] = {"words", "kept"};
         rows.autoStart = "e";
     }},
    {"removal",
     "REMOVE_CFG",
     {{"RowID", "c"}},
     Channels::Mode::OK,
     [](Catalogue& rows) {
         rows.rows.erase("c");
         rows.autoStart = "";
     }},
    {"auto-start",
     "SET_AUTOSTART_CFG",
     {{"RowID", "a"}, {"AutoStart", "true"}},
     Channels::Mode::OK,
     [](Catalogue& rows) { rows.autoStart = "a"; }},
};

TEST_P(FaultTest, NothingAcknowledgedIsLostWhateverCallFailsOrIsTheLast)
{
    const Step& step = kSteps[GetParam()];
    const int stride = variable("SYSMGT_FAULTS", 23);
    int points = 0;
    int offset = 0;
    for (const int error : {0, EIO, ENOSPC, EINTR, EPERM}) {
        int n = offset++ % stride;
        while (runWithFault(step, n, error) && ++points > 0)
            n += stride;
    }
    std::printf("%s: %d faults\n", step.name, points);
}

INSTANTIATE_TEST_SUITE_P(Steps, FaultTest, testing::Range(0, static_cast<int>(std::size(kSteps))));

} // namespace
