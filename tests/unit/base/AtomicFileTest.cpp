#include "base/AtomicFile.h"
#include "ChildProcess.h"
#include "Refusal.h"

#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <random>
#include <set>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;

class AtomicFileTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directories(kDirectory);
        umask(022);
    }
    void TearDown() override
    {
        umount(kDirectory);
        fs::remove_all(kParent);
    }

    static FileWrite write(const std::string& text, const std::string& path = kPath)
    {
        return replaceFileAtomically(path, [&text](std::ostream& out) { out << text; });
    }

    static int store(const std::string& text, const std::string& path = kPath)
    {
        return write(text, path).error;
    }

    static std::vector<std::string> names(const char* directory = kDirectory)
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(directory))
            found.push_back(entry.path().filename());
        return found;
    }

    static struct stat status(const char* path = kPath)
    {
        struct stat result = {};
        stat(path, &result);
        return result;
    }

    static void inThread(const std::function<void()>& work) { std::thread(work).join(); }

    /// From here on file permissions hold in the calling thread, although it is root's.
    static void dropCapabilities()
    {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2] = {};
        ASSERT_EQ(0, syscall(SYS_capset, &header, none));
    }

    /// Stores in a thread of its own whose n-th system call on files fails with `error`, or kills
    /// this process (0). False when there are fewer calls.
    static bool storeWithFault(const std::function<void()>& setUp, int n, int error,
                               FileWrite& result)
    {
        static const std::set<int> kCalls = {
#ifdef SYS_open
            SYS_open,
#endif
#ifdef SYS_newfstatat
            SYS_newfstatat,
#else
            SYS_statx,  SYS_fstatat64, SYS_fstat64, SYS_ftruncate64, SYS_fchown32,
#endif
            SYS_openat,     SYS_unlinkat,  SYS_linkat, SYS_renameat, SYS_write,
            SYS_fsync,      SYS_fchown,    SYS_fchmod, SYS_syncfs,   SYS_readlinkat,
            SYS_fstat,      SYS_ftruncate, SYS_read};
        std::promise<int> ready;
        std::thread storing([&] {
            setUp();
            std::vector<sock_filter> filter = {
                BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
            for (const int call : kCalls) {
                filter.push_back(
                    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
                filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
            }
            filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
            const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
            prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
            ready.set_value(static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                                     SECCOMP_FILTER_FLAG_NEW_LISTENER, &program)));
            result = write("new");
        });
        pollfd listener = {ready.get_future().get(), POLLIN, 0};
        EXPECT_NE(-1, listener.fd);
        int calls = 0;
        while (poll(&listener, 1, -1) == 1 && (listener.revents & POLLIN) != 0) {
            seccomp_notif call = {};
            if (ioctl(listener.fd, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0)
                continue;
            seccomp_notif_resp answer = {call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
            if (calls++ == n) {
                if (error == 0)
                    raise(SIGKILL);
                answer = {call.id, 0, -error, 0};
            }
            ioctl(listener.fd, SECCOMP_IOCTL_NOTIF_SEND, &answer);
        }
        close(listener.fd);
        storing.join();
        return calls > n;
    }

    /// The same in a process of its own, which is killed at the call.
    static bool storeUntilKilled(const std::function<void()>& setUp, int n)
    {
        const pid_t child = fork();
        if (child == 0) {
            FileWrite result;
            storeWithFault(setUp, n, 0, result);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status);
    }

    static constexpr char kParent[] = "/tmp/atomic";
    static constexpr char kDirectory[] = "/tmp/atomic/dir";
    static constexpr char kPath[] = "/tmp/atomic/dir/file";
};

TEST_F(AtomicFileTest, ANewFileHasTheUsualModeAndAReplacedOneKeepsItsModeAndOwner)
{
    EXPECT_EQ(0, store("first"));
    EXPECT_EQ("first", readFile(kPath));
    const struct stat first = status();
    EXPECT_EQ(0644u, first.st_mode & 07777);
    chmod(kPath, 0606);
    const bool canGive = chown(kPath, 1, 1) == 0; // not where only one user is known
    EXPECT_EQ(0, store(std::string(1000000, 'x')));
    EXPECT_EQ(std::string(1000000, 'x'), readFile(kPath));
    EXPECT_EQ(0606u, status().st_mode & 07777);
    EXPECT_EQ(canGive ? 1u : geteuid(), status().st_uid);
    EXPECT_NE(first.st_ino, status().st_ino);

    chmod(kPath, 04664);
    inThread([] {
        dropCapabilities();
        EXPECT_EQ(0, store("an owner who cannot be kept"));
    });
    EXPECT_EQ("an owner who cannot be kept", readFile(kPath));
    EXPECT_EQ(geteuid(), status().st_uid);
    EXPECT_EQ(canGive ? 0644u : 04664u, status().st_mode & 07777) << "another group is as others";
    EXPECT_THAT(names(), ElementsAre("file"));
}

/// What can be in the way of a store: each leaves the file replaced, or written in place.
TEST_F(AtomicFileTest, WhateverCallFailsTheFileIsTheOldOneOrTheNewOne)
{
    struct Case {
        const char* name;
        std::function<void()> prepare; // the file, which holds "old text" already
        std::function<void()> setUp;   // the thread that stores
        int inPlace;
    };
    const auto nothing = [] {};
    const auto foreign = [] {
        chmod(kPath, 0640);
        std::ignore = chown(kPath, 1, 1);
    };
    const auto noUnnamed = [] { refuse(SYS_openat, 2, O_TMPFILE & ~O_DIRECTORY, EOPNOTSUPP); };
    const auto directoryMode = [](mode_t mode) { return [mode] { chmod(kDirectory, mode); }; };
    for (const Case& c : {
             Case{"plain", nothing, nothing, 0},
             Case{"new", [] { fs::remove(kPath); }, nothing, 0},
             Case{"foreign", foreign, nothing, 0},
             Case{"owner lost", foreign, dropCapabilities, 0},
             Case{"link",
                  [] {
                      fs::rename(kPath, "/tmp/atomic/other/target");
                      fs::create_symlink("../other/target", kPath);
                  },
                  nothing, 0},
             Case{"no /proc, no capability", nothing, [] { refuse(SYS_linkat, 0, 0, ENOENT); }, 0},
             Case{"no unnamed files", nothing, noUnnamed, 0},
             Case{"another file system",
                  [] {
                      ASSERT_EQ(0, mount("own", kDirectory, "tmpfs", 0, nullptr));
                      writeFile(kPath, "old text");
                  },
                  nothing, 0},
             Case{"not listable", directoryMode(0300), dropCapabilities, 0},
             Case{"not writable", directoryMode(0555), dropCapabilities, EACCES},
         }) {
        constexpr int kKilledThenStore = 0;
        constexpr int kKilledThenStart = -1;
        for (const int error : {EPERM, ENOSPC, EINTR, kKilledThenStore, kKilledThenStart}) {
            bool reached = true;
            for (int n = 0; reached; ++n) {
                SCOPED_TRACE(testing::Message()
                             << c.name << ", errno " << error << " at call " << n);
                TearDown();
                fs::create_directories("/tmp/atomic/other");
                SetUp();
                writeFile(kPath, "old text");
                c.prepare();
                const std::string old = readFile(kPath);
                const bool isLink = fs::is_symlink(kPath);
                const ino_t before = status().st_ino;
                FileWrite result;
                reached = error > 0 ? storeWithFault(c.setUp, n, error, result)
                                    : storeUntilKilled(c.setUp, n);
                chmod(kDirectory, 0755);
                if (!reached || error == EINTR) {
                    ASSERT_EQ(0, result.error);
                    ASSERT_TRUE(error <= 0 || c.inPlace == result.inPlace);
                    ASSERT_EQ(c.inPlace != 0, before == status().st_ino);
                }
                ASSERT_TRUE(error == EPERM || result.inPlace == 0 || result.inPlace == c.inPlace);
                const std::string found = readFile(kPath);
                ASSERT_TRUE(found == "new" ||
                            (found == old && (result.error != 0 || (reached && error <= 0))) ||
                            (c.inPlace != 0 && error <= 0)) // a kill cuts it short
                    << found;
                ASSERT_EQ(isLink, fs::is_symlink(kPath));
                if (error == kKilledThenStart)
                    removeStaleTempFiles(kPath);
                else
                    inThread([&c] { // removes what has been left
                        c.setUp();
                        EXPECT_EQ(0, store("later"));
                    });
                ASSERT_THAT(names(), testing::Each("file"));
                ASSERT_THAT(names(kParent), testing::UnorderedElementsAre("dir", "other"));
                ASSERT_THAT(names("/tmp/atomic/other"), testing::Each("target"));
            }
        }
    }
}

TEST_F(AtomicFileTest, WhatIsNoFileStaysWhatItIsAndHoldsNobodyUp)
{
    EXPECT_EQ(ENOSPC, store("x", "/dev/full"));
    ASSERT_EQ(0, mkfifo(kPath, 0600));
    EXPECT_EQ(ENXIO, store("nobody reads"));
    const int reader = open(kPath, O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(0, write("read").inPlace);
    EXPECT_EQ(EAGAIN, store(std::string(1 << 20, 'x')));
    char text[4];
    EXPECT_EQ(4, read(reader, text, 4));
    EXPECT_EQ("read", std::string(text, 4));
    EXPECT_EQ(EPIPE, replaceFileAtomically(kPath, [reader](std::ostream& out) {
                         close(reader);
                         out << "to nobody";
                     }).error);
    EXPECT_TRUE(fs::is_fifo(kPath));
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(AtomicFileTest, LinksAreFollowedToTheEndUnlessAStrangerHasPutThem)
{
    fs::create_symlink("second", kPath);
    fs::create_symlink("/tmp/atomic/target", "/tmp/atomic/dir/second");
    EXPECT_EQ(0, store("through a link that leads nowhere yet"));
    EXPECT_EQ("through a link that leads nowhere yet", readFile("/tmp/atomic/target"));
    EXPECT_TRUE(fs::is_symlink("/tmp/atomic/dir/second"));
    fs::create_symlink("loop", "/tmp/atomic/loop");
    EXPECT_EQ(ELOOP, store("x", "/tmp/atomic/loop"));

    const int open = ::open("/tmp/atomic/target", O_RDONLY);
    fs::remove("/tmp/atomic/target");
    EXPECT_EQ(0, store("still open", "/proc/self/fd/" + std::to_string(open)));
    EXPECT_EQ("still open", readFile("/proc/self/fd/" + std::to_string(open)));
    close(open);

    chmod(kDirectory, 01777);
    const bool canGive = lchown(kPath, 1, 1) == 0; // not where only one user is known
    EXPECT_EQ(canGive ? EACCES : 0, store("x"));
}

TEST_F(AtomicFileTest, AMountPointIsWrittenInPlace)
{
    const std::string target = "/tmp/atomic/target";
    store("a long old text", target);
    store("");
    ASSERT_EQ(0, mount(target.c_str(), kPath, nullptr, MS_BIND, nullptr));
    EXPECT_EQ(EBUSY, write("busy").inPlace);
    ASSERT_EQ(0, umount(kPath));
    EXPECT_EQ("busy", readFile(target));
    chmod(kDirectory, 0555);
    inThread([] {
        dropCapabilities();
        EXPECT_EQ(EACCES, store("new", "/tmp/atomic/dir/another"));
    });
}

TEST_F(AtomicFileTest, AFailureLeavesTheOldFileAndNothingBesideIt)
{
    ASSERT_EQ(0, mount("small", kDirectory, "tmpfs", 0, "size=64k"));
    EXPECT_EQ(0, store("old"));
    EXPECT_EQ(ENOSPC, store(std::string(200000, 'x')));
    EXPECT_EQ(EIO, replaceFileAtomically(kPath, [](std::ostream& out) {
                       out << "half";
                       out.setstate(std::ios::badbit);
                   }).error);
    EXPECT_EQ("old", readFile(kPath));
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_EQ(0, umount(kDirectory));
    EXPECT_EQ(ENOENT, store("x", "/tmp/no such directory/file"));
    EXPECT_EQ(EISDIR, store("x", "/tmp"));
}

TEST_F(AtomicFileTest, EveryKindOfPathFindsItsDirectory)
{
    fs::current_path(kDirectory);
    const std::string longest(255, 'n');
    for (const char* text : {"first", "second"})
        EXPECT_EQ(0, store(text, longest));
    EXPECT_EQ("second", readFile(kDirectory + ('/' + longest)));
    EXPECT_EQ(ENAMETOOLONG, store("x", longest + "n"));
    fs::current_path("/tmp");
}

TEST_F(AtomicFileTest, ReplacesTheFileAlsoWhereTheKernelRefusesACall)
{
    const std::pair<std::function<void()>, std::string> cases[] = {
        // where a stale file stands
        {[] { refuse(SYS_openat, 2, O_TMPFILE & ~O_DIRECTORY, EOPNOTSUPP); }, kDirectory},
        {[] { refuse(SYS_linkat, 4, AT_EMPTY_PATH, ENOENT); }, kParent},
    };
    for (const auto& [refuseCall, staleIn] : cases) {
        const std::string inode = std::to_string(status(kDirectory).st_ino);
        writeFile(staleIn + "/.file." + inode + ".~storing", "left by a crash");
        inThread([&refuseCall = refuseCall] {
            refuseCall();
            EXPECT_EQ(0, store("old"));
            chmod(kPath, 0600);
            EXPECT_EQ(0, store("new"));
            EXPECT_EQ(ENAMETOOLONG, store("x", kPath + std::string(256, 'n')));
        });
        EXPECT_EQ("new", readFile(kPath));
        EXPECT_EQ(0600u, status().st_mode & 07777);
        EXPECT_THAT(names(), ElementsAre("file"));
        EXPECT_THAT(names(kParent), ElementsAre("dir"));
        fs::remove(kPath);
    }
}

TEST_F(AtomicFileTest, AfterAKillAtAnyInstantTheFileIsWholeAndNothingIsBesideIt)
{
    std::mt19937 random(20240305);
    std::uniform_int_distribution<useconds_t> microseconds(0, 3000);
    const auto filledWith = [](char filling) { return std::string(10000, filling); };
    store(filledWith('-'));
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const pid_t child = fork();
        for (char filling = 'a'; child == 0; filling ^= 1)
            store(filledWith(filling));
        usleep(microseconds(random));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        ASSERT_THAT(names(), ElementsAre("file"));
        const std::string found = readFile(kPath);
        ASSERT_EQ(filledWith(found[0]), found);
        removeStaleTempFiles(kPath);
        ASSERT_THAT(names(kParent), ElementsAre("dir"));
    }
    EXPECT_NE(filledWith('-'), readFile(kPath)) << "no child came to store";
}

TEST_F(AtomicFileTest, OnlyWhatAWriterOfTheFileLeavesIsStale)
{
    const std::string inode = std::to_string(status(kDirectory).st_ino);
    const std::string stale[] = {"/tmp/atomic/.file." + inode + ".~storing",
                                 "/tmp/atomic/dir/.file.1.~storing",
                                 "/tmp/atomic/dir/.file." + inode + ".~storing"};
    const std::string kept[] = {"/tmp/atomic/.file.1.~storing", "/tmp/atomic/dir/.file.~storing",
                                "/tmp/atomic/dir/.file.1a.~storing",
                                "/tmp/atomic/dir/.other.1.~storing",
                                "/tmp/atomic/dir/.file..~storing"};
    for (const auto& file : stale)
        writeFile(file, "");
    for (const auto& file : kept)
        writeFile(file, "");
    fs::create_directory("/tmp/atomic/dir/.file.2.~storing");
    EXPECT_THAT(removeStaleTempFiles(kPath), testing::UnorderedElementsAreArray(stale));
    EXPECT_THAT(removeStaleTempFiles(kPath), testing::IsEmpty());
    for (const auto& file : kept)
        EXPECT_TRUE(fs::exists(file)) << file;
}

TEST(TempFileNameTest, OnlyTemporaryNamesAreTakenForStaleFiles)
{
    EXPECT_TRUE(isTempFileName(".cfg_stored_set.json.12.~storing"));
    for (const char* name : {"", "..", "set.json", ".set.json", "n.~storing", ".~storing",
                             "..~storing", ".n.~storing2"})
        EXPECT_FALSE(isTempFileName(name)) << name;
}

} // namespace
